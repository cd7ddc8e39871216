#include "tools/common/ParameterText.h"
#include "tools/common/TreeJson.h"
#include "tools/kvinv/Boards.h"
#include "tools/kvinv/Commands.h"

int runGet(const Options& options, Console& console)
{
    Selection selection;
    KvCInventoryAddress address;
    if (!selectionOf(options, selection, console) || !boardAddress(options.arguments[0], address, console))
        return StatusUsage;
    const Boards boards(selection, console);
    if (!boards.isGood())
        return StatusFailed;
    KvCErrorListPool errors;
    KvCInventoryParameter parameter;
    const long result = KvCInventoryManager::getInstance().readParameter(errors, boards.handle(), address, parameter);
    console.report(errors);
    if (result != 0)
        return StatusFailed;
    std::string out;
    if (options.json) {
        KvNTreeJson::appendParameter(out, parameter);
    } else {
        out = console.shown(KvNParameterText::valueText(parameter), true);
        if (console.outputIsTerminal() && *parameter.getUnit() != '\0')
            out += " " + console.shown(parameter.getUnit());
    }
    console.write(out + "\n");
    return StatusDone;
}
