#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "tools/common/JsonEvents.h"

class KvCErrorListPool;
class KvCInventoryItem;
class KvCInventoryParameter;

/**
 * An inventory tree as JSON (docs/formats.md, "Inventory tree as JSON"). Writing and reading walk the tree and the
 * document without recursion and without a document in memory, so that neither depth nor width is limited.
 */
namespace KvNTreeJson {

/** Where written text goes. */
class Sink
{
public:
    virtual ~Sink() = default;
    /** Takes a piece of the text; false ends the writing. */
    virtual bool write(std::string_view piece) = 0;
};

/** A sink into a string. */
class TextSink : public Sink
{
public:
    bool write(std::string_view piece) override
    {
        m_text.append(piece);
        return true;
    }
    const std::string& text() const { return m_text; }

private:
    std::string m_text;
};

/** Writes the document {"format": "korvel-inventory", "version": 1, "tree": ITEM} and a line feed. Below 32 levels
    nothing is indented. False when the sink refused; throws std::bad_alloc when memory is out. */
bool writeTree(Sink& sink, const KvCInventoryItem& root);

/** Writes one ITEM with everything below it, without a line feed at the end. */
bool writeItem(Sink& sink, const KvCInventoryItem& root);

/** Appends one PARAMETER, on one line. */
void appendParameter(std::string& out, const KvCInventoryParameter& parameter);
/** Appends a parameter's VALUE. */
void appendValue(std::string& out, const KvCInventoryParameter& parameter);

/**
 * Builds the tree of one ITEM from parser events. A reader of a larger document that holds an ITEM forwards to it every
 * event from the ITEM's startObject on, until isDone(). On a false event, problem() says what is wrong and where, as
 * `at "POINTER": what`. Never throws but std::bad_alloc.
 */
class ItemReader : public KvNJson::Handler
{
public:
    /** `prefix` is the JSON pointer of the ITEM in its document, for messages. */
    explicit ItemReader(std::string_view prefix = "");
    ~ItemReader() override;

    bool null() override;
    bool boolean(bool value) override;
    bool number(const KvNJson::Number& value) override;
    bool text(std::string_view value) override;
    bool startObject() override;
    bool key(std::string_view name) override;
    bool endObject() override;
    bool startArray() override;
    bool endArray() override;
    void malformed(const std::string& what) override;

    /** The ITEM has been read to its end. */
    bool isDone() const;
    /** What is wrong; empty while nothing is. */
    const std::string& problem() const;
    /** The tree of an ITEM that is done; null otherwise. Hands it over. */
    std::unique_ptr<KvCInventoryItem> take();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/** Reads the whole document; null on failure, and `problem` then says what is wrong and where. Memory that runs out is
    a problem like any other. */
std::unique_ptr<KvCInventoryItem> readTree(KvNJson::Source& source, std::string& problem);

/** Reads a document that is one ITEM alone; `prefix` as for ItemReader. */
std::unique_ptr<KvCInventoryItem> readItem(KvNJson::Source& source, std::string& problem, std::string_view prefix = "");

}  // namespace KvNTreeJson
