#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "base/KvCBuffer.h"
#include "base/MessageTables.h"

using Bytes = std::vector<unsigned char>;

/** A fresh buffer and the list that it reports to. */
class Buffer : public testing::Test
{
protected:
    Buffer() { KvNMessageTables::registerStream(); }

    void expectNoError() { EXPECT_EQ(errors.getErrorCount(), 0U) << errors.getErrorText(0); }
    /** Expects exactly this report, and forgets it. */
    void expectReported(KvUInt32 code, const char* origin)
    {
        EXPECT_EQ(errors.getErrorCount(), 1U);
        EXPECT_EQ(errors.getErrorCode(0), code);
        EXPECT_STREQ(errors.getErrorOrigin(0), origin);
        errors.clear();
    }
    Bytes occupied() const
    {
        const char* start = buffer.getStartPointer();
        return Bytes(start, start + buffer.getOccupiedSize());
    }
    void fill(KvUInt32 count)
    {
        const Bytes bytes(count, 0x55);
        buffer.writeBuffer(errors, bytes.data(), count, 1);
    }

    KvCErrorListPool errors;
    KvCBuffer buffer{errors};
};
