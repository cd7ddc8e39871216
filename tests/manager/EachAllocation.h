#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "platform/errorhandling/KvCErrorManager.h"
#include "tests/support/FailingAllocation.h"

/** Fails the 1st, the 2nd ... allocation of `operation` until it needs no more, alone and with all that follow; each
    time the operation fails and says so, or succeeds. `operation` gives its result, and cleans up after itself. Every
    code that it reported is added to `seen`. */
inline void eachAllocationFails(const std::function<long(KvCErrorListPool&)>& operation, std::set<KvUInt32>& seen)
{
    for (const bool lasting : {false, true}) {
        std::size_t number = 1;
        for (;; ++number) {
            KvCErrorListPool reported;
            bool failed = false;
            long result = 0;
            {
                const FailingAllocation failing(number, lasting);
                result = operation(reported);
                failed = failing.hasFailed();
            }
            EXPECT_EQ(result != 0, reported.getErrorCount() != 0) << number;
            for (KvUInt32 i = 0; i < reported.getErrorCount(); ++i)
                seen.insert(reported.getErrorCode(i));
            if (!failed) {
                EXPECT_EQ(0, result);
                break;
            }
        }
        EXPECT_LT(1u, number) << "the operation takes memory";
    }
    KvCErrorManager::getMasterErrorList().clear();
}
