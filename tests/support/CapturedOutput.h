#pragma once

#include <string>
#include <vector>

#include "platform/errorhandling/KvCErrorManager.h"

/** While it lives, what the error manager delivers is collected here instead of going to standard error. */
class CapturedOutput
{
public:
    struct Message
    {
        bool warning;
        KvUInt32 code;
        std::string origin;
        std::string text;
    };

    CapturedOutput() { KvCErrorManager::setOutput(take, this); }
    ~CapturedOutput() { KvCErrorManager::setOutput(nullptr, nullptr); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::vector<Message> messages;

private:
    static void take(void* context, bool warning, KvUInt32 code, const char* origin, const char* text)
    {
        static_cast<CapturedOutput*>(context)->messages.push_back({warning, code, origin, text});
    }
};
