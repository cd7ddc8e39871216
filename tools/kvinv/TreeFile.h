#pragma once

#include <memory>
#include <string>
#include <vector>

#include "inventory/KvCInventoryItem.h"
#include "tools/common/TreeJson.h"
#include "tools/kvinv/Console.h"

/** Trees out of files and on their way into them. What goes wrong is told on the console. */
namespace TreeFile {

/** Whether the path names a regular file, of which any part can be read. */
bool isRegular(const std::string& path);
/** How messages name a file. */
std::string shownName(const std::string& path);
/** Everything that can be read of a file; false, told, when that fails or is more than 256 MiB. */
bool readAll(const std::string& path, std::vector<char>& bytes, Console& console);

/** The tree of the inventory section in the file (- for standard input); null, told, when there is none. */
std::unique_ptr<KvCInventoryItem> readSection(const std::string& path, Console& console);

/** The tree of a tree JSON file. */
std::unique_ptr<KvCInventoryItem> readJson(const std::string& path, Console& console);

/** The tree of a file that is either. */
std::unique_ptr<KvCInventoryItem> readEither(const std::string& path, Console& console);

/** Writes the tree as an inventory section to `path` (- for standard output), with `append` behind what the file holds.
    A file is complete or unchanged. False when that failed. */
bool writeSection(const std::string& path, bool append, KvCInventoryItem& tree, Console& console);

/** How a tree is printed. */
struct Form
{
    enum class Kind
    {
        Text,
        Json,
        Csv
    };
    Kind kind = Kind::Text;
    int flags = 0;
    int level = 0;
};

/** The form that the options ask for; false, told, when they make no sense. */
bool formOf(const Options& options, Form& form, Console& console);

/** Prints the tree; false when the console has been left or memory was out. */
bool print(const KvCInventoryItem& tree, const Form& form, Console& console);

/** Passes text to the console. */
class ConsoleSink : public KvNTreeJson::Sink
{
public:
    explicit ConsoleSink(Console& console) : m_console(console) {}
    bool write(std::string_view piece) override { return m_console.write(piece); }

private:
    Console& m_console;
};

}  // namespace TreeFile
