#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/dal/KvDALAp.h"
#include "platform/dal/KvDALBase.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "tests/platform/dal/ScriptedBoards.h"

/** The codes of a list, innermost first. */
inline std::vector<KvUInt32> codes(const KvCErrorListPool& errors)
{
    std::vector<KvUInt32> all;
    for (KvUInt32 i = 0; i < errors.getErrorCount(); ++i)
        all.push_back(errors.getErrorCode(i));
    return all;
}

/** Collects the warnings of the test that has it: code and text. */
class Warnings
{
public:
    Warnings() { KvCErrorManager::setOutput(&Warnings::take, this); }
    ~Warnings() { KvCErrorManager::setOutput(nullptr, nullptr); }
    std::vector<std::pair<KvUInt32, std::string>> all;

private:
    static void take(void* context, bool warning, KvUInt32 code, const char*, const char* text)
    {
        if (warning)
            static_cast<Warnings*>(context)->all.emplace_back(code, text);
    }
};

/** A filter, deleted with the object. */
class Filter
{
public:
    Filter() { EXPECT_EQ(KvDAL_createFilter(errors, &handle, 1), 0); }
    ~Filter() { KvDAL_deleteFilter(errors, handle); }
    Filter& with(KvUInt32 id, KvUInt32 number)
    {
        EXPECT_EQ(KvDAL_setFilterParameter(errors, handle, id, 4, &number), 0);
        return *this;
    }
    Filter& named(const char* name)
    {
        const auto size = static_cast<KvUInt32>(std::strlen(name) + 1);
        EXPECT_EQ(KvDAL_setFilterParameter(errors, handle, 1, size, name), 0);
        return *this;
    }
    /** The boards found. */
    std::vector<KvDALSDeviceInfo> apply()
    {
        EXPECT_EQ(KvDAL_applyFilter(errors, handle), 0);
        KvUInt32 count = 0;
        KvCErrorListPool unused;
        std::vector<KvDALSDeviceInfo> infos;
        if (KvDAL_getDeviceList(unused, handle, nullptr, &count) == KvNDeviceAccess::ListTooSmall) {
            infos.resize(count);
            EXPECT_EQ(KvDAL_getDeviceList(errors, handle, infos.data(), &count), 0);
        }
        EXPECT_EQ(codes(errors), std::vector<KvUInt32>());
        return infos;
    }
    /** Their serial numbers. */
    std::vector<KvUInt32> serials()
    {
        std::vector<KvUInt32> all;
        for (const KvDALSDeviceInfo& info : apply())
            all.push_back(info.serialNumber);
        return all;
    }

    KvCErrorListPool errors;
    void* handle = nullptr;
};

/** A device handle, deleted with the object unless that was done before. */
class Device
{
public:
    Device(KvUInt32 address, KvUInt32 serialNumber)
    {
        KvDALSDeviceInfo info = {};
        info.ipAddress = address;
        info.serialNumber = serialNumber;
        EXPECT_EQ(KvDAL_createDeviceHandle(errors, &handle, info), 0);
    }
    ~Device() { KvDAL_deleteDeviceHandle(errors, handle); }
    KvCErrorListPool errors;
    void* handle = nullptr;
};

/** Parameter `id` of a handle, a number; 0 when it cannot be read, with the result in `result`. */
inline KvUInt32 number(void* handle, KvUInt32 id, KvInt32* result = nullptr)
{
    KvCErrorListPool errors;
    KvUInt32 value = 0;
    KvUInt32 size = 4;
    const KvInt32 done = KvDAL_getParam(errors, handle, id, 0, &size, &value);
    EXPECT_EQ(errors.getErrorCount(), done == 0 ? 0u : 1u);
    if (result != nullptr)
        *result = done;
    return value;
}
