#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "Operation.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

/* Error lists, the error manager, the allocation operators, and what the library takes from its system. */

namespace {

constexpr KvUInt32 code = 0x1300809;  // "... in address %1 ..."
const char* const argument = "an argument that is as long as a file's path often is, and so takes memory of its own";

struct Lists
{
    KvCErrorListPool list;
    KvCErrorListPool other;
    std::vector<unsigned char> block;
    KvUInt32 seen = 0;

    Lists()
    {
        other.setError(code, 1, "Class::first", "%s", argument);
        other.setError(code, 2, "Class::second", "%s", argument);
        block = other.serialize();
    }
};

/** The entries of a list, each as it should be or not kept. */
std::string entriesOf(const KvCErrorListPool& list)
{
    for (KvUInt32 i = 0; i < list.getErrorCount(); ++i) {
        if (list.getErrorCode(i) == 0)
            continue;
        if (list.getErrorCode(i) != code || std::strncmp(list.getErrorOrigin(i), "Class::", 7) != 0 ||
            list.getErrorLine(i) == 0)
            return "an entry is wrong";
    }
    return std::to_string(list.getErrorCount());
}

void setErrorV(KvCErrorListPool& list, const char* origin, const char* argTypes, ...)
{
    std::va_list arguments;
    va_start(arguments, argTypes);
    list.setErrorV(code, 3, origin, argTypes, arguments);
    va_end(arguments);
}

void sendWarningV(const char* argTypes, ...)
{
    std::va_list arguments;
    va_start(arguments, argTypes);
    KvCErrorManager::sendWarningV(code, 3, "Class::method", argTypes, arguments);
    va_end(arguments);
}

/** Counts what the error manager delivers. */
struct Delivered
{
    Lists lists;
    int count = 0;
    int whole = 0;

    Delivered() { KvCErrorManager::setOutput(take, this); }
    ~Delivered()
    {
        KvCErrorManager::setOutput([](void*, bool, KvUInt32, const char*, const char*) {}, nullptr);
    }
    static void take(void* context, bool, KvUInt32 delivered, const char* origin, const char* text)
    {
        auto* const self = static_cast<Delivered*>(context);
        ++self->count;
        if (delivered == code && std::strncmp(origin, "Class::", 7) == 0 && text != nullptr && *text != '\0')
            ++self->whole;
    }
    std::string told() const { return std::to_string(count) + " " + std::to_string(whole); }
};

const char* const texts[] = {"a text"};
const KvResRange ranges[] = {{0, 1}};
const KvResText messages = {texts, 1, ranges, 1, 0x7700000};

struct Messages
{
    ~Messages() { KvCErrorManager::unregisterMessages(&messages); }
};

struct Made
{
    void* block = nullptr;
    ~Made() { std::free(block); }
};

struct WithMutex
{
    KvNRtosAbstraction::Mutex* mutex = nullptr;
    ~WithMutex() { KvNRtosAbstraction::deleteMutex(mutex); }
};

struct Work
{
    std::atomic<int> left{100};
    std::atomic<int> done{0};
};

struct OpenFile
{
    std::FILE* file = nullptr;
    ~OpenFile()
    {
        if (file != nullptr)
            std::fclose(file);
    }
};

void addListRows(Table& table)
{
    table.add<Lists>(
        "KvCErrorList::setError KvCErrorList::getErrorCode KvCErrorList::getErrorOrigin KvCErrorList::getErrorLine",
        [](Lists& lists, KvCErrorListPool&) {
            lists.list.clear();
            for (int i = 0; i < 3; ++i)
                lists.list.setError(code, 7, "Class::method", "%s", argument);
            return lists.list.getErrorCount() == 3;
        },
        [](Lists& lists) { return entriesOf(lists.list); });
    table.add<Lists>(
        "KvCErrorList::setErrorV",
        [](Lists& lists, KvCErrorListPool&) {
            lists.list.clear();
            for (int i = 0; i < 3; ++i)
                setErrorV(lists.list, "Class::method", "%s", argument);
            return lists.list.getErrorCount() == 3;
        },
        [](Lists& lists) { return entriesOf(lists.list); });
    table.add<Lists>(
        "KvCErrorList::getErrorText",
        [](Lists& lists, KvCErrorListPool&) {
            lists.seen = lists.other.getErrorText(0)[0] != '\0' && lists.other.getErrorText(1)[0] != '\0' ? 2 : 0;
            return true;
        },
        [](Lists& lists) { return std::to_string(lists.seen) + lists.other.getErrorText(0); });
    table.add<Lists>(
        "KvCErrorList::clear KvCErrorList::takeOver",
        [](Lists& lists, KvCErrorListPool&) {
            lists.list.clear();
            if (lists.other.getErrorCount() == 0)
                lists.other.deSerialize(lists.block.data(), lists.block.size());
            lists.list.takeOver(lists.other);
            return lists.list.getErrorCount() == 2 && lists.other.getErrorCount() == 0;
        },
        [](Lists& lists) { return entriesOf(lists.list); });
    table.add<Lists>(
        "KvCErrorList::serialize",
        [](Lists& lists, KvCErrorListPool&) {
            lists.block = lists.other.serialize();
            return !lists.block.empty();
        },
        [](Lists& lists) { return std::string(lists.block.begin(), lists.block.end()); }, Says::ByResult);
    table.add<Lists>(
        "KvCErrorList::deSerialize",
        [](Lists& lists, KvCErrorListPool&) {
            lists.list.clear();
            return lists.list.deSerialize(lists.block.data(), lists.block.size());
        },
        [](Lists& lists) { return entriesOf(lists.list); }, Says::ByResult);
}

void addManagerOfErrorsRows(Table& table)
{
    table.add<Lists>(
        "KvCErrorManager::createErrorList KvCErrorManager::deleteErrorList KvCErrorManager::getMasterErrorList "
        "KvCErrorManager::getSingleton",
        [](Lists& lists, KvCErrorListPool&) {
            KvCErrorListPool& made = KvCErrorManager::getSingleton()->createErrorList(0, 0, 2, 1, 10);
            made.setError(code, 1, "Class::method", "%s", argument);
            lists.seen = made.getErrorCount();
            KvCErrorManager::deleteErrorList(made);
            KvCErrorManager::getMasterErrorList().clear();
            return true;
        },
        [](Lists& lists) { return std::to_string(lists.seen); });
    table.add<Delivered>(
        "KvCErrorManager::sendErrorList KvCErrorManager::setOutput",
        [](Delivered& to, KvCErrorListPool&) {
            KvCErrorManager::sendErrorList(to.lists.other, 0);
            return to.lists.other.getErrorCount() == 0;
        },
        [](Delivered& to) { return to.told(); });
    table.add<Delivered>(
        "KvCErrorManager::sendWarning",
        [](Delivered&, KvCErrorListPool&) {
            KvCErrorManager::sendWarning(code, 1, "Class::method", "%s", argument);
            return true;
        },
        [](Delivered& to) { return to.told(); });
    table.add<Delivered>(
        "KvCErrorManager::sendWarningV",
        [](Delivered&, KvCErrorListPool&) {
            sendWarningV("%s", argument);
            return true;
        },
        [](Delivered& to) { return to.told(); });
    table.add<Messages>(
        "KvCErrorManager::registerMessages KvCErrorManager::unregisterMessages KvCErrorManager::getMessageText",
        [](Messages&, KvCErrorListPool&) {
            KvCErrorManager::unregisterMessages(&messages);
            return KvCErrorManager::registerMessages(&messages);
        },
        [](Messages&) {
            const char* const text = KvCErrorManager::getMessageText(0x7700000);
            return std::string(text == nullptr ? "none" : text);
        },
        Says::ByResult);
}

void addAllocationRows(Table& table)
{
    table.add<Made>(
        "KvNAllocation::allocate KvNAllocation::reallocate KvNAllocation::release KvNAllocation::mayAllocate "
        "KvNAllocation::setHook",
        [](Made&, KvCErrorListPool&) {
            void* block = KvNAllocation::allocate(100);
            if (block == nullptr)
                return false;
            void* const larger = KvNAllocation::reallocate(block, 100000);
            KvNAllocation::release(larger == nullptr ? block : larger);
            return larger != nullptr && KvNAllocation::mayAllocate(8);
        },
        [](Made&) { return std::string(); }, Says::ByResult);
    table.add<Made>(
        "operator new operator delete",
        [](Made& made, KvCErrorListPool& errors) {
            made.block = ::operator new(100, errors);
            return made.block != nullptr;
        },
        [](Made& made) { return std::string(made.block == nullptr ? "none" : "some"); }, Says::ByResult);
    table.add<Made>(
        "operator new[] operator delete[]",
        [](Made& made, KvCErrorListPool& errors) {
            made.block = ::operator new[](100, errors);
            return made.block != nullptr;
        },
        [](Made& made) { return std::string(made.block == nullptr ? "none" : "some"); }, Says::ByResult);
}

void addSystemRows(Table& table)
{
    table.add<WithMutex>(
        "KvNRtosAbstraction::initMutex KvNRtosAbstraction::lockMutex KvNRtosAbstraction::unlockMutex "
        "KvNRtosAbstraction::deleteMutex",
        [](WithMutex& with, KvCErrorListPool&) { return KvNRtosAbstraction::initMutex(&with.mutex, "a name"); },
        [](WithMutex& with) {
            const bool locked = KvNRtosAbstraction::lockMutex(with.mutex, -1);
            KvNRtosAbstraction::unlockMutex(with.mutex);
            return std::string(locked ? "locks" : "does not lock");
        },
        Says::ByResult);
    table.add<Work>(
        "KvNRtosAbstraction::runSideBySide KvNRtosAbstraction::processorCount",
        [](Work& work, KvCErrorListPool&) {
            work.left = 100;
            work.done = 0;
            KvNRtosAbstraction::runSideBySide(
                3,
                [](void* context) {
                    auto* const mine = static_cast<Work*>(context);
                    while (mine->left-- > 0)
                        ++mine->done;
                },
                &work);
            return KvNRtosAbstraction::processorCount() > 0;
        },
        [](Work& work) { return std::to_string(work.done); });
    table.add<OpenFile>(
        "KvNRtosAbstraction::openRegularFile",
        [](OpenFile& open, KvCErrorListPool&) {
            KvUInt64 size = 0;
            KvNRtosAbstraction::FileKind kind{};
            open.file = KvNRtosAbstraction::openRegularFile(KV_SAMPLES_DIR "/single-board.inv", &size, &kind);
            return open.file != nullptr;
        },
        [](OpenFile& open) { return std::string(open.file == nullptr ? "closed" : "open"); }, Says::ByResult);
    table.add<Made>(
        "KvNRtosAbstraction::stringToIpV4 KvNRtosAbstraction::ipToString",
        [](Made&, KvCErrorListPool&) {
            char text[KvNRtosAbstraction::ipTextSize];
            return KvNRtosAbstraction::stringToIpV4(KvNRtosAbstraction::ipToString(0x7F000001, text, sizeof text)) ==
                   0x7F000001;
        },
        [](Made&) { return std::string(); });
}

}  // namespace

void addErrorRows(Table& table)
{
    addListRows(table);
    addManagerOfErrorsRows(table);
    addAllocationRows(table);
    addSystemRows(table);
}
