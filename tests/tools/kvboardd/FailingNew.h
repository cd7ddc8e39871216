#pragma once

#include <cstddef>

/**
 * While it lives, operator new fails: the `number`-th call (from 1) since, and with `lasting` all that follow. For
 * programs that link FailingNew.cpp.
 */
class FailingNew
{
public:
    FailingNew(std::size_t number, bool lasting);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    /** Whether one has failed since the last of these was made. */
    static bool hasFailed();
};
