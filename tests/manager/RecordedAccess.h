#pragma once

#include <cstdio>

#include "FakeDeviceAccess.h"
#include "ManagerTest.h"
#include "tests/support/CapturedOutput.h"

using Calls = std::vector<std::string>;

inline Calls operator+(Calls left, const Calls& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/** An entry of a list as tests write it: of the manager's own, code, origin and text; of others, the code. */
inline std::string entry(KvUInt32 code, const char* operation = nullptr, const std::string& text = "")
{
    char number[20];
    std::snprintf(number, sizeof number, "0x%X", static_cast<unsigned int>(code));
    return operation == nullptr ? number : std::string(number) + " KvCInventoryManager::" + operation + ": " + text;
}

using Chain = std::vector<std::string>;

/** The entries of a list, in its order. */
inline Chain chainOf(const KvCErrorList& errors)
{
    Chain chain;
    const std::string own = "KvCInventoryManager::";
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i) {
        const std::string origin = errors.getErrorOrigin(i);
        chain.push_back(origin.rfind(own, 0) != 0
                            ? entry(errors.getErrorCode(i))
                            : entry(errors.getErrorCode(i), origin.c_str() + own.size(), errors.getErrorText(i)));
    }
    return chain;
}

/** One board, HCN[100] at 10.0.0.1, behind a recorded device access library and a recording client. What the manager
    asks of either stands in one order in `fake.calls`. */
class RecordedAccess : public ::testing::Test
{
protected:
    RecordedAccess() : address(KvNInventoryIDs::HCN[100] / KvNInventoryIDs::CPU[2])
    {
        FakeDeviceAccess::reset();
        client = new RecordingClient(errors);
        client->journal = &fake.calls;
        fake.client = client;
        void* device = reinterpret_cast<void*>(std::uintptr_t{100});
        EXPECT_EQ(0, manager.createRootHandleByDeviceHandleList(errors, &device, 1, root));
        fake.calls.clear();
    }
    ~RecordedAccess() override
    {
        KvCErrorListPool ignored;
        manager.deleteRootHandle(ignored, root);
        EXPECT_LE(client->decoded(), client->released()) << "every result is given back";
        EXPECT_EQ(0, fake.openLocks);
        EXPECT_EQ(0, fake.openTransfers);
        delete client;
        fake.client = nullptr;
    }

    /** What was called since it was asked last. */
    Calls called() { return std::exchange(fake.calls, {}); }
    /** What was reported since it was asked last. */
    Chain reported()
    {
        const Chain chain = chainOf(errors);
        errors.clear();
        return chain;
    }

    static constexpr KvUInt32 AccessId = 0xACCE55;  // the one that the recorded library gives
    static constexpr const char* Board = "HCN (serial number: 100, IP address: 10.0.0.1)";
    /** HCN[100]/CPU[2] on the wire. */
    static constexpr const char* OnWire = "00 00 00 02  00 00 00 04  00 00 01 7C 00 00 00 64  00 00 00 02 00 00 00 02 ";

    const KvCInventoryManager& manager = KvCInventoryManager::getInstance();
    FakeDeviceAccess& fake = FakeDeviceAccess::instance();
    CapturedOutput output;
    KvCErrorListPool errors;
    const KvCInventoryAddress address;
    RecordingClient* client = nullptr;
    KvCInventoryRootHandle* root = nullptr;
    void* const lockHandle = reinterpret_cast<void*>(std::uintptr_t{2});
};
