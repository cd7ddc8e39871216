#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/KvTypes.h"

/** What a scripted board does at one call instead of the usual. */
struct ScriptedFault
{
    enum class Kind
    {
        LoseCall,   // the connection ends before the call is served
        LoseReply,  // it ends after that
        Silence,    // no answer, and the connection stays
        Late,       // it is served, and answered behind the next call that has no fault
        Answer      // these bytes
    };
    Kind kind = Kind::Answer;
    std::vector<unsigned char> answer;
};

/** The files of a scripted board: it takes them as a real one does, with one transfer at a time. */
struct ScriptedFiles
{
    struct Call
    {
        KvUInt32 procedure;
        std::vector<unsigned char> arguments;
    };

    /** By procedure and the how manieth call of it (from 1); 0: each call that has none of its own. */
    std::map<std::pair<KvUInt32, int>, ScriptedFault> faults;
    /** With each answer. */
    std::vector<unsigned char> errorList;
    /** That it takes for each chunk. */
    unsigned milliseconds = 0;

    /** Every call that came, in order. */
    std::vector<Call> calls;
    /** What is on the board, by its whole name. */
    std::map<std::string, std::string> stored;
    /** The unfinished transfer; 0: none. */
    KvUInt32 transferId = 0;
    KvUInt32 begun = 0;
    KvUInt32 ended = 0;
    KvUInt32 accessId = 77;
    std::string name;
    std::string received;
    KvUInt64 announced = 0;

    /** Notes a call; the fault that it meets, or null. */
    const ScriptedFault* note(KvUInt32 procedure, const unsigned char* arguments, std::size_t bytes);
    /** Does what the call asks for and gives the answer; none for arguments that are none. */
    std::vector<unsigned char> serve(KvUInt32 procedure, const unsigned char* arguments, std::size_t bytes);

    /** The calls of one procedure. */
    std::vector<std::vector<unsigned char>> callsOf(KvUInt32 procedure) const;
    /** The procedures called, in order. */
    std::vector<KvUInt32> procedures() const;

private:
    std::vector<unsigned char> begin(const unsigned char* arguments, std::size_t bytes);
    std::vector<unsigned char> take(const unsigned char* arguments, std::size_t bytes);
    std::vector<unsigned char> end(const unsigned char* arguments, std::size_t bytes);
    std::vector<unsigned char> abort(const unsigned char* arguments, std::size_t bytes);
    std::vector<unsigned char> remove(const unsigned char* arguments, std::size_t bytes);
    std::vector<unsigned char> result(KvUInt32 status) const;

    std::map<KvUInt32, int> m_counts;
    KvUInt32 m_checksum = 0;
    KvUInt32 m_finishedId = 0;
};
