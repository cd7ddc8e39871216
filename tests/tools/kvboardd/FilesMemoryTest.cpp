#include <gtest/gtest.h>

#include <new>

#include "FailingNew.h"
#include "ServicesFixture.h"
#include "base/Crc32.h"
#include "tests/support/FailingAllocation.h"

namespace {

constexpr const char* fileName = "abcdef0123456700";
constexpr const char* old = "the contents that were there before";
constexpr const char* fresh = "the contents that come instead of them";

/** Each call about files while the n-th allocation fails, for every n. */
class FilesMemoryTest : public ServicesFixture, public testing::WithParamInterface<std::tuple<KvUInt32, bool, bool>>
{
protected:
    FilesMemoryTest()
    {
        std::string directory;
        std::string name;
        m_files.generateName(directory, name);
    }
    static Bytes named(KvUInt32 accessId, std::string_view name)
    {
        return words({accessId}) + counted("transfer") + counted(name);
    }
    static KvUInt32 crc(std::string_view content) { return KvNCrc32::crc32(0, content.data(), content.size()); }
    static KvUInt32 sizeOf(std::string_view content) { return static_cast<KvUInt32>(content.size()); }
    KvUInt32 begin(KvUInt32 accessId, std::string_view content)
    {
        const Answer answer = access(5, named(accessId, fileName) + words({0, sizeOf(content)}));
        WireReader reader(answer.results);
        EXPECT_EQ(reader.word(), Ok);
        return reader.word();
    }
    void put(KvUInt32 accessId, KvUInt32 id, std::string_view content)
    {
        const Answer answer = access(6, words({accessId, id, 0, 0}) + counted(content));
        EXPECT_EQ(WireReader(answer.results).word(), Ok);
    }
    void putAll(KvUInt32 accessId, std::string_view content)
    {
        const KvUInt32 id = begin(accessId, content);
        put(accessId, id, content);
        EXPECT_EQ(access(7, words({accessId, id, crc(content)})).results, words({Ok, 0}));
        EXPECT_EQ(m_folder.read(fileName), content);
    }
    /** Calls while an allocation fails; whether one has. */
    bool failing(std::size_t n, KvUInt32 procedure, const Bytes& arguments)
    {
        const bool lasting = std::get<1>(GetParam());
        try {
            if (std::get<2>(GetParam())) {
                const FailingAllocation hook(n, lasting);
                access(procedure, arguments);
                return hook.hasFailed();
            }
            const FailingNew hook(n, lasting);
            access(procedure, arguments);
        } catch (const std::bad_alloc&) {
            return true;
        }
        return FailingNew::hasFailed();
    }
};

TEST_P(FilesMemoryTest, ACallThatHasNoMemoryEndsAloneAndCanBeRepeated)
{
    const KvUInt32 procedure = std::get<0>(GetParam());
    for (const bool isRefused : {false, true}) {
        for (std::size_t n = 1;; ++n) {
            ASSERT_LT(n, 1000u);
            const KvUInt32 id = lock(2);
            putAll(id, old);
            KvUInt32 transfer = begin(id, fresh);
            if (procedure == 7)
                put(id, transfer, fresh);
            const KvUInt32 wrong = isRefused ? 1 : 0;
            const Bytes arguments = procedure == 5   ? named(id, isRefused ? "x" : fileName) + words({0, sizeOf(fresh)})
                                    : procedure == 6 ? words({id, transfer, 0, wrong}) + counted(fresh)
                                    : procedure == 7 ? words({id, transfer, crc(fresh) + wrong})
                                    : procedure == 8 ? words({id, transfer + wrong})
                                    : procedure == 9 ? named(id, isRefused ? "x" : fileName)
                                                     : Bytes();
            const bool failed = failing(n, procedure, arguments);
            const std::string content = m_folder.read(fileName);
            EXPECT_TRUE(content == old || content == fresh || (procedure == 9 && content.empty())) << n << content;
            if (procedure == 6 && !isRefused) {
                EXPECT_EQ(WireReader(access(6, arguments).results).word(), Ok) << "repeated";
                EXPECT_EQ(access(7, words({id, transfer, crc(fresh)})).results, words({Ok, 0}));
                EXPECT_EQ(m_folder.read(fileName), fresh);
            } else if (procedure == 7 && !isRefused) {
                EXPECT_EQ(access(7, arguments).results, words({Ok, 0})) << "repeated " << n;
                EXPECT_EQ(m_folder.read(fileName), fresh);
            }
            putAll(id, old);
            ASSERT_EQ(take(access(4, words({id}))), Ok);
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.path()), {}), 1);
            if (!failed)
                break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Procedures, FilesMemoryTest,
                         testing::Combine(testing::Values(5u, 6u, 7u, 8u, 9u, 11u), testing::Bool(), testing::Bool()),
                         [](const auto& row) {
                             return std::to_string(std::get<0>(row.param)) +
                                    (std::get<1>(row.param) ? "_lasting" : "_once") +
                                    (std::get<2>(row.param) ? "_library" : "_service");
                         });

}  // namespace
