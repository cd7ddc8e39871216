#pragma once

#include "platform/errorhandling/KvCErrorManager.h"

/** A small table at 0x7f00000, registered while the first of these objects lives. */
class TestMessages
{
public:
    static constexpr KvUInt32 plain = 0x7f00000;
    static constexpr KvUInt32 withText = 0x7f00001;
    static constexpr KvUInt32 withAll = 0x7f01000;
    static constexpr KvUInt32 repeated = 0x7f01001;

    TestMessages() : m_registered(KvCErrorManager::registerMessages(&table)) {}
    ~TestMessages()
    {
        if (m_registered)
            KvCErrorManager::unregisterMessages(&table);
    }
    TestMessages(const TestMessages&) = delete;
    TestMessages& operator=(const TestMessages&) = delete;

    static inline const char* const texts[] = {"Nothing to add.", "Cannot open %1.", "%1 %2 %3 %4 %5",
                                               "%2 before %1, then %2%% and %6"};
    static inline const KvResRange ranges[] = {{0, 2}, {2, 0}, {2, 2}, {0xFFFFFFFF, 0}};
    static inline const KvResText table = {texts, 4, ranges, 3, 0x7f00000};

private:
    const bool m_registered;
};
