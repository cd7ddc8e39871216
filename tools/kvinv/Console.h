#pragma once

#include <mutex>
#include <string>
#include <string_view>

class KvCErrorList;
class Progress;
struct Options;

/** Exit statuses; those of diff are its own. */
enum Status
{
    StatusDone = 0,
    StatusFailed = 1,
    StatusUsage = 2,
    StatusIncomplete = 3
};

/**
 * Where results and messages go: results to standard output, everything else to standard error, each message on one
 * line with nothing in it that could steer a terminal. A reader of the results that goes away is no failure; nothing is
 * written any more then.
 */
class Console
{
public:
    /** Also takes over what the library sends without being asked. */
    explicit Console(const Options& options);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /** Writes a piece of the result. False when nobody takes it any more. */
    bool write(std::string_view piece);
    /** A text from outside as it belongs into the result: escaped on a terminal, as it is elsewhere. */
    std::string shown(std::string_view text, bool keepLines = false) const;
    /** Whether the result is shown to a person. */
    bool outputIsTerminal() const { return m_outputIsTerminal; }
    /** Whether nobody reads the result any more. */
    bool isLeft() const { return m_gone; }
    /** To be called after something else has written to standard output. */
    bool check();
    /** The result is complete: `status`, or, told, when it could not be written and nothing else has failed, `trouble`.
     */
    int finish(int status, int trouble);

    /** What the program itself has to say: `kvinv: TEXT`. */
    void problem(std::string_view text);
    /** The same for what does not make the command fail; nothing with -q. */
    void warning(std::string_view text);
    /** Every entry of the list, innermost first. */
    void report(const KvCErrorList& errors);
    /** One line of how far things are: only for a person who looks, not with -q. */
    void note(std::string_view text);
    /** One line for a change of state, where no bar shows it: not with -q or --json. */
    void change(std::string_view text);
    /** The bar that has to give way to messages; null for none. It is the caller's. */
    void setProgress(Progress* progress);
    /** Held while something is written to standard error: the library's threads have messages too. */
    std::unique_lock<std::recursive_mutex> turn() { return std::unique_lock(m_turn); }
    /** Whether a bar is shown (not with -q or -vv, and only on a terminal that can write on a line again), and whether
       with colours. */
    bool showsProgress() const;
    bool errorsHaveColor() const { return m_errorColor; }

    /** Around emphasised text of the result; empty without colours. */
    std::string_view bold() const { return m_outputColor ? "\x1b[1m" : ""; }
    std::string_view red() const { return m_outputColor ? "\x1b[31m" : ""; }
    std::string_view green() const { return m_outputColor ? "\x1b[32m" : ""; }
    std::string_view yellow() const { return m_outputColor ? "\x1b[33m" : ""; }
    std::string_view plain() const { return m_outputColor ? "\x1b[0m" : ""; }

    /** One entry of an error list. */
    struct Entry
    {
        bool isWarning = false;
        bool hasCode = true;
        unsigned code = 0;
        unsigned long line = 0;
        std::string_view origin;
        std::string_view text;
    };

private:
    void entry(const Entry& entry);
    void tell(const std::string& line);
    static void sent(void* context, bool warning, unsigned code, const char* origin, const char* text);

    bool m_json;
    bool m_quiet;
    bool m_verbose;
    bool m_traced;  // lines of calls come from several threads: no bar can give way to them
    bool m_outputIsTerminal;
    bool m_outputColor = false;
    bool m_errorColor = false;
    std::recursive_mutex m_turn;
    Progress* m_progress = nullptr;
    bool m_gone = false;  // nobody reads the results any more
    std::string m_outputProblem;
};
