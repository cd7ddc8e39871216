#include "tools/common/JsonEvents.h"
#include "tools/common/Text.h"
#include "tools/kvinv/Commands.h"
#include "tools/kvinv/Interruption.h"
#include "tools/kvinv/UpdateRun.h"

namespace {

/** What is known before anything is changed. */
struct Plan
{
    std::string address;
    FirmwareImage::Type type = KvNInventoryManager::Invalid;
    std::optional<KvUInt32> kind;
    RemoteFile::Local file;
    FirmwareImage::Content image;
    std::optional<KvCVersion> onBoard;

    const char* typeName() const { return KvCInventoryManager::getFirmwareTypeString(type); }
};

std::string text(const std::optional<KvCVersion>& version, const char* none)
{
    return version ? version->getAsString().c_str() : none;
}

/** Why the image is not to be tried; empty when it is. */
std::string refusal(const Plan& plan)
{
    if (plan.image.isBroken)
        return "the inventory section in " + plan.file.path + " cannot be read";
    if (!plan.image.hasSection)
        return "no inventory section in " + plan.file.path;
    if (!plan.image.hasItem)
        return plan.file.path + " is no image for " + plan.typeName() + ": it has no item " +
               FirmwareImage::itemNames(plan.type);
    if (!plan.image.version)
        return plan.file.path + " does not say which version it is";
    if (!plan.onBoard)
        return "the version of " + plan.address + " cannot be read";
    if (!(*plan.image.version > *plan.onBoard))
        return "version " + text(plan.image.version, "") + " of " + plan.file.path + " is not newer than " +
               text(plan.onBoard, "") + " of " + plan.address;
    return "";
}

void showPlan(const Plan& plan, Console& console)
{
    console.write(console.shown("board: " + plan.address + " has version " + text(plan.onBoard, "unknown") + "\n" +
                                    "image: " + plan.file.path + " has version " + text(plan.image.version, "unknown") +
                                    " (" + plan.typeName() + ", " + std::to_string(plan.file.size) + " bytes)\n",
                                true));
}

std::string jsonVersion(const std::optional<KvCVersion>& version)
{
    return version ? "\"" + text(version, "") + "\"" : "null";
}

std::string errorsAsJson(const KvCErrorListPool& errors)
{
    std::string out;
    for (KvUInt32 i = 0; i < errors.getErrorCount() && errors.getErrorCode(i) != 0; ++i) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%lx", static_cast<unsigned long>(errors.getErrorCode(i)));
        out += std::string(out.empty() ? "" : ", ") + "{\"code\": \"" + code + "\", \"message\": ";
        KvNJson::appendText(out, errors.getErrorText(i));
        out += "}";
    }
    return "[" + out + "]";
}

/** The end of the command: what was done, as text or as the one object of --json. */
void showResult(const Options& options, const Plan& plan, const char* result, const KvCErrorListPool& errors,
                Console& console)
{
    if (!options.json)
        return;
    std::string out = "{\"address\": ";
    KvNJson::appendText(out, plan.address);
    out += std::string(", \"type\": \"") + plan.typeName() +
           "\", \"kind\": " + (plan.kind ? std::to_string(*plan.kind) : "null") + ", \"image\": ";
    KvNJson::appendText(out, plan.file.path);
    out += ", \"size\": " + std::to_string(plan.file.size) + ", \"onBoard\": " + jsonVersion(plan.onBoard) +
           ", \"inImage\": " + jsonVersion(plan.image.version) + ", \"result\": \"" + result +
           "\", \"errors\": " + errorsAsJson(errors) + "}\n";
    console.write(out);
}

const char* nameOf(UpdateRun::Outcome outcome)
{
    switch (outcome) {
        case UpdateRun::Outcome::Updated:
            return "updated";
        case UpdateRun::Outcome::Interrupted:
            return "interrupted";
        case UpdateRun::Outcome::LeftToBoard:
            return "left to the board";
        case UpdateRun::Outcome::Failed:
            break;
    }
    return "failed";
}

/** Fills the plan from the image and the board; false, told, when the update is not to be tried. */
bool prepare(const Options& options, const Boards& boards, const KvCInventoryAddress& address, Plan& plan,
             Console& console)
{
    plan.onBoard = FirmwareImage::versionOnBoard(boards, address, console);
    if (Interruption::happened())
        return false;
    if (!options.json)
        showPlan(plan, console);
    const std::string why = refusal(plan);
    if (why.empty())
        return true;
    if (options.force)
        console.warning(why + "; it is tried all the same");
    else
        console.problem(why + "; nothing was changed (--force tries it all the same)");
    return options.force;
}

}  // namespace

int runUpdate(const Options& options, Console& console)
{
    Selection selection;
    KvCInventoryAddress address;
    Plan plan;
    if (!selectionOf(options, selection, console) || !boardAddress(options.arguments[0], address, console) ||
        !FirmwareImage::typeOf(options, address, plan.type, plan.kind, console))
        return StatusUsage;
    plan.address = address.toString().c_str();
    if (!RemoteFile::find(options.arguments[1], plan.file, console))
        return StatusFailed;
    plan.image = FirmwareImage::read(plan.file.path, plan.type, address, console);
    const Boards boards(selection, console);
    if (!boards.isGood())
        return StatusFailed;
    const KvCErrorListPool none;
    if (!prepare(options, boards, address, plan, console)) {
        showResult(options, plan, Interruption::happened() ? "interrupted" : "refused", none, console);
        return StatusFailed;
    }
    if (options.dryRun) {
        if (!options.json)
            console.write("dry run: nothing was changed\n");
        showResult(options, plan, "dry run", none, console);
        return StatusDone;
    }
    UpdateRun run({boards, address, plan.type, plan.kind, plan.file}, console);
    const UpdateRun::Outcome outcome = run.run();
    const bool isUpdated = outcome == UpdateRun::Outcome::Updated;
    if (isUpdated && !options.json)
        console.write("updated: " + plan.address + " to version " + text(plan.image.version, "unknown") + "\n");
    showResult(options, plan, nameOf(outcome), run.errors(), console);
    return isUpdated ? StatusDone : StatusFailed;
}
