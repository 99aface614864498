// The power is cut at every single change that a store makes; what was not synced is kept, dropped, torn or reordered.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>

#include "FileStoreFixture.h"
#include "SystemCalls.h"

namespace {

using test::Change;
using test::FileStoreFixture;
using test::SystemCalls;

constexpr std::size_t sector = 512;

/// A disk as a file system that promises no more than the manual pages do: a file's data is durable once it was
/// synced, a name once its folder was. Until then each change may be there or not, independently of all others.
class Disk {
public:
    explicit Disk(const std::map<std::string, std::string> &files) {
        for (const auto &[name, bytes] : files) {
            m_names[name] = static_cast<int>(m_files.size());
            m_files.push_back({bytes, bytes});
        }
        m_durableNames = m_names;
    }

    void apply(const Change &change) {
        switch (change.kind) {
        case Change::create:
            m_names[change.file] = static_cast<int>(m_files.size());
            m_files.emplace_back();
            m_pending.push_back({change.file, m_names[change.file]});
            break;
        case Change::write: {
            std::string &bytes = fileOf(change.file).bytes;
            bytes.resize(std::max<std::size_t>(bytes.size(), change.offset + change.other.size()));
            bytes.replace(change.offset, change.other.size(), change.other);
            break;
        }
        case Change::syncFile:
            fileOf(change.file).durable = fileOf(change.file).bytes;
            break;
        case Change::rename:
            m_names[change.other] = m_names.at(change.file);
            m_names.erase(change.file);
            m_pending.push_back({change.other, m_names[change.other]});
            m_pending.push_back({change.file, gone});
            break;
        case Change::unlink:
            m_names.erase(change.file);
            m_pending.push_back({change.file, gone});
            break;
        case Change::syncFolder:
            m_durableNames = m_names;
            m_pending.clear();
            break;
        }
    }

    /// What a start finds after the power was cut now.
    template <class Random>
    std::map<std::string, std::string> afterPowerCut(Random &random) const {
        std::map<std::string, int> names = m_durableNames;
        // A rename is one change: both of its halves are there, or none.
        for (std::size_t i = 0; i < m_pending.size(); ++i) {
            const bool isRename =
                i + 1 < m_pending.size() && m_pending[i + 1].file == gone && m_pending[i].file != gone;
            if (random() % 2 == 0) {
                names[m_pending[i].name] = m_pending[i].file;
                if (isRename) {
                    names[m_pending[i + 1].name] = gone;
                }
            }
            i += isRename ? 1 : 0;
        }
        std::map<std::string, std::string> found;
        for (const auto &[name, file] : names) {
            if (file != gone) {
                found[name] = contentAfter(m_files[static_cast<std::size_t>(file)], random);
            }
        }
        return found;
    }

private:
    static constexpr int gone = -1;

    struct File {
        std::string bytes;
        std::string durable;
    };
    struct PendingName {
        std::string name;
        int file;
    };

    File &fileOf(const std::string &name) { return m_files[static_cast<std::size_t>(m_names.at(name))]; }

    template <class Random>
    static std::string contentAfter(const File &file, Random &random) {
        if (file.bytes == file.durable) {
            return file.durable;
        }
        switch (random() % 3) {
        case 0:
            return file.durable; // dropped
        case 1:
            return file.bytes; // kept
        default: {
            // Torn: of any length, each sector the new one, the old one or nothing but zeros.
            std::string content(random() % (file.bytes.size() + 1), '\0');
            for (std::size_t at = 0; at < content.size(); at += sector) {
                const std::string &from = random() % 2 == 0 ? file.bytes : file.durable;
                for (std::size_t i = at; i < std::min(at + sector, content.size()); ++i) {
                    content[i] = i < from.size() ? from[i] : '\0';
                }
            }
            return content;
        }
        }
    }

    std::vector<File> m_files;
    std::map<std::string, int> m_names;
    std::map<std::string, int> m_durableNames;
    std::vector<PendingName> m_pending;
};

class FilePowerCut : public FileStoreFixture, public testing::WithParamInterface<unsigned> {
protected:
    ~FilePowerCut() override { SystemCalls::ignore(); }

    storage::StoredValues generation(std::int32_t number) const {
        storage::StoredValues values;
        for (int i = 0; i < 100; ++i) { // several sectors
            values.push_back(value(number, "Cfg/Object/Variable" + std::to_string(i)));
        }
        return values;
    }

    /// The one number that all values have; -1 for none, -2 for a mixture.
    std::int32_t numberFound() {
        EAFResult code = eAF_E_FAILED;
        const storage::StoredValues values = read(code);
        if (code >= eAF_E_FAILED) {
            return -3;
        }
        std::set<std::vector<unsigned char>> contents;
        for (const storage::StoredValue &each : values) {
            contents.insert(each.content);
        }
        if (contents.empty()) {
            return -1;
        }
        if (contents.size() > 1 || values.size() != 100) {
            return -2;
        }
        std::int32_t number = 0;
        std::memcpy(&number, values[0].content.data(), sizeof number);
        return number;
    }
};

TEST_P(FilePowerCut, AtEveryChangeOfAStore_LeavesTheOldOrTheNewAndAfterItTheNew) {
    std::mt19937 random(GetParam());
    unsigned tries = 0;
    unsigned old = 0;
    unsigned fresh = 0;
    unsigned mixed = 0;
    unsigned refused = 0;
    for (std::int32_t number = 0; number < 4; ++number) {
        const auto before = files();
        SystemCalls::watch(folder);
        ASSERT_EQ(eAF_S_OK, write(generation(number)));
        const std::vector<Change> changes = SystemCalls::changes();
        SystemCalls::ignore();
        const auto after = files();
        ASSERT_GE(changes.size(), 3U);
        for (std::size_t cut = 0; cut <= changes.size(); ++cut) {
            Disk disk(before);
            for (std::size_t i = 0; i < cut; ++i) {
                disk.apply(changes[i]);
            }
            for (int image = 0; image < 12; ++image) {
                putBack(disk.afterPowerCut(random));
                const std::int32_t found = numberFound();
                ++tries;
                mixed += found == -2 ? 1 : 0;
                refused += found == -3 ? 1 : 0;
                EXPECT_TRUE(found == number || found == number - 1)
                    << "found " << found << " after change " << cut << " of " << changes.size() << ", generation "
                    << number;
                EXPECT_TRUE(cut < changes.size() || found == number) << "the store had returned";
                fresh += found == number ? 1 : 0;
                old += found == number - 1 ? 1 : 0;
            }
        }
        putBack(after);
    }
    std::printf("seed %u: %u power cuts, %u old, %u new, %u mixed, %u refused\n", GetParam(), tries, old, fresh, mixed,
                refused);
    EXPECT_GT(old, 0u);
    EXPECT_GT(fresh, 0u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, FilePowerCut, testing::Range(1U, 9U));

} // namespace
