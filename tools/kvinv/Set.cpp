#include "composite/ElementTypes.h"
#include "tools/common/ParameterText.h"
#include "tools/kvinv/Boards.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Interruption.h"

namespace {

/** The parameter as the board has it, with the new value; false, told, when it cannot take it. */
bool prepare(const Boards& boards, const KvCInventoryAddress& address, const std::string& value,
             KvCInventoryParameter& parameter, Console& console)
{
    KvCErrorListPool errors;
    const long result = KvCInventoryManager::getInstance().readParameter(errors, boards.handle(), address, parameter);
    console.report(errors);
    if (result != 0)
        return false;
    const std::string name = address.toString().c_str();
    if (!parameter.isModifiable()) {
        console.problem(name + " is not modifiable");
        return false;
    }
    std::string problem;
    if (KvNParameterText::setValueText(parameter, value, problem))
        return true;
    console.problem(name + ": " + problem + ", not " + value);
    return false;
}

long write(KvCErrorListPool& errors, const Boards& boards, const KvCInventoryAddress& address, void* lock,
           const KvCInventoryParameter& parameter)
{
    return KvNElement::dispatch(
        parameter.getType(),
        [&](auto type) -> long {
            using T = typename decltype(type)::Value;
            if constexpr (KvNElement::isArray<T>) {
                return -1;
            } else {
                const T* value = parameter.valueIf<T>();
                return value == nullptr ? -1
                                        : KvCInventoryManager::getInstance().writeParameterValue<T>(
                                              errors, boards.handle(), address, lock, *value);
            }
        },
        [] { return -1L; });
}

}  // namespace

int runSet(const Options& options, Console& console)
{
    Selection selection;
    KvCInventoryAddress address;
    if (!selectionOf(options, selection, console) || !boardAddress(options.arguments[0], address, console))
        return StatusUsage;
    if (address.getLength() < 2) {
        console.problem(options.arguments[0] + " names a board, not a parameter");
        return StatusUsage;
    }
    const Boards boards(selection, console);
    KvCInventoryParameter parameter;
    if (!boards.isGood() || !prepare(boards, address, options.arguments[1], parameter, console))
        return StatusFailed;
    BoardLock lock(console);
    if (Interruption::happened() || !lock.take(boards, address))
        return StatusFailed;
    KvCErrorListPool errors;
    bool good = write(errors, boards, address, lock.handle(), parameter) == 0;
    good =
        good && !Interruption::happened() &&
        KvCInventoryManager::getInstance().apply(errors, boards.handle(), address.getHeadAddress(), lock.handle()) == 0;
    console.report(errors);
    if (!good && errors.getErrorCount() == 0 && !Interruption::happened())
        console.problem(std::string(address.toString().c_str()) + " could not be changed");
    return lock.release() && good ? StatusDone : StatusFailed;
}
