// A store that a machine of the other byte order wrote is gone on with, and is this machine's after that.
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "FileStore.h"
#include "FileStoreFixture.h"

namespace {

using storage::StoredValues;

/// Writes numbers in the order that is not this machine's.
class OtherMachine {
public:
    OtherMachine &text(const std::string &text) {
        m_bytes += text;
        return *this;
    }
    template <class Number>
    OtherMachine &number(Number number) {
        const auto *bytes = reinterpret_cast<const char *>(&number);
        m_bytes.append(bytes, sizeof number);
        std::reverse(m_bytes.end() - static_cast<std::ptrdiff_t>(sizeof number), m_bytes.end());
        return *this;
    }
    OtherMachine &checksum(std::size_t since) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(m_bytes.data());
        return number(static_cast<std::uint32_t>(crc32_z(0, bytes + since, m_bytes.size() - since)));
    }
    OtherMachine &record(const std::string &path, std::int32_t value) {
        number(static_cast<std::uint32_t>(16 + path.size() + sizeof value));
        const std::size_t begin = m_bytes.size();
        number(static_cast<std::uint32_t>(TYPE_INT32)).number(1U).number(static_cast<std::uint32_t>(path.size()));
        return text(path).number(value).checksum(begin);
    }
    const std::string &bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

using FileByteOrder = test::FileStoreFixture;

TEST_F(FileByteOrder, ValuesOfTheOtherOrder_StayWhenAStoreReplacesOne) {
    OtherMachine store;
    store.text("ZAFSTORE").number(0x01020304U).number(1U).number(32U).number(2U).number(std::uint64_t{9});
    store.number(std::uint64_t{44 + 2 * 25 + 4}).checksum(0);
    store.record("A", 258).record("B", -3).checksum(0);
    folder.replaceFiles({{"s", store.bytes()}});

    EXPECT_EQ(eAF_S_OK, write({value(-3, "B")}));
    EXPECT_EQ(store.bytes(), test::bytesOf(file)) << "nothing differs";
    EXPECT_EQ(eAF_S_OK, write({value(4, "B"), value(5, "C")}));
    EXPECT_EQ(store.bytes(), test::bytesOf(in("s.1")));
    EAFResult code = eAF_E_FAILED;
    EXPECT_EQ((StoredValues{value(258, "A"), value(4, "B"), value(5, "C")}), read(code));
    EXPECT_EQ(eAF_S_OK, code);
    const storage::Bytes ours = storage::packStore({value(258, "A"), value(4, "B"), value(5, "C")}, 10);
    EXPECT_EQ(std::string(ours.begin(), ours.end()), test::bytesOf(file));
}

} // namespace
