#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/errorhandling/KvCErrorManager.h"

/*
 * The table of everything that the library exports as an operation, each with a small program: what stands before it is
 * set up by making an Operation, perform() does it while memory fails, result() tells what can be seen of it
 * afterwards, and destroying the object gives everything back.
 */

class Operation
{
public:
    virtual ~Operation() = default;
    /** Does it; whether it says that it has succeeded. Called again after a failure, with memory. */
    virtual bool perform(KvCErrorListPool& errors) = 0;
    /** What it has led to. */
    virtual std::string result() = 0;
};

/** How an operation says that it failed. */
enum class Says
{
    InAList,     ///< in the caller's error list or in the master list, as want of memory
    InItsWords,  ///< there too, with a message of its own that does not name memory
    ByResult     ///< by what it returns, which alone tells it
};

struct Row
{
    std::string names;  ///< of the operations, as they are exported, separated by blanks
    std::function<std::unique_ptr<Operation>()> make;
    Says says = Says::InAList;
};

/** An operation on a `State`, which is set up by its constructor. */
template <class State>
class OperationOn final : public Operation
{
public:
    using Perform = bool (*)(State&, KvCErrorListPool&);
    using Result = std::string (*)(State&);

    OperationOn(Perform doIt, Result tell) : m_perform(doIt), m_result(tell) {}
    bool perform(KvCErrorListPool& errors) override { return m_perform(m_state, errors); }
    std::string result() override { return m_result(m_state); }

private:
    State m_state;
    Perform m_perform;
    Result m_result;
};

class Table
{
public:
    template <class State>
    void add(const char* names, typename OperationOn<State>::Perform perform,
             typename OperationOn<State>::Result result, Says says = Says::InAList)
    {
        m_rows.push_back({names, [=] { return std::make_unique<OperationOn<State>>(perform, result); }, says});
    }

    const std::vector<Row>& rows() const { return m_rows; }

private:
    std::vector<Row> m_rows;
};

/** Whether nothing has been reported, to the list or to the master list: for operations without a result of their own.
 */
inline bool isQuiet(const KvCErrorListPool& errors)
{
    return errors.getErrorCount() + KvCErrorManager::getMasterErrorList().getErrorCount() == 0;
}

/** The operations that need nothing but memory, and those that talk to boards. */
void addErrorRows(Table& table);
void addBaseRows(Table& table);
void addCompositeRows(Table& table);
void addStreamRows(Table& table);
void addInventoryRows(Table& table);
void addXdrRows(Table& table);
void addDeviceRows(Table& table);
void addManagerRows(Table& table);
