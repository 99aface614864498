// The limit of the file provider: the same bytes with the same checksums, written and put in place with the same
// flushes.
#include <absl/container/flat_hash_map.h>
#include <absl/strings/string_view.h>
#include <zlib.h>

#include <stdexcept>
#include <string_view>

#include "ProviderDurableFile.h"
#include "ProviderKeepers.h"

namespace speed {

namespace {

constexpr std::size_t headerSize = 44;
constexpr std::size_t recordOverhead = 20;

class BareFile : public Keeper {
public:
    BareFile(Values &values, const std::string &folder) : m_values(values), m_file(folder, "values.store") {
        std::size_t size = headerSize + sizeof(std::uint32_t);
        for (const Value &value : values.all()) {
            size += recordOverhead + value.path.size() + value.size;
            m_byPath.emplace(absl::string_view(value.path.data(), value.path.size()), &value);
        }
        m_bytes.resize(size);
    }

    void store() override {
        if (m_shadow.updateAll(m_values)) {
            pack();
            m_file.replace(m_bytes.data(), m_bytes.size());
        }
    }

    void retrieve() override {
        m_file.read(m_bytes);
        const std::size_t end = m_bytes.size() - sizeof(std::uint32_t);
        if (numberAt(end) != checksum(m_bytes.data(), end)) {
            throw std::runtime_error("bare file: its checksum is wrong");
        }
        for (std::size_t at = headerSize; at < end; at += sizeof(std::uint32_t) + numberAt(at)) {
            const std::size_t pathLength = numberAt(at + 12);
            const auto found = m_byPath.find(absl::string_view(m_bytes.data() + at + 16, pathLength));
            if (found == m_byPath.end()) {
                continue;
            }
            const Value &value = *found->second;
            if (numberAt(at + 4) == value.type && numberAt(at + 8) == value.noOfElements) {
                std::memcpy(m_values.contentOf(value), m_bytes.data() + at + 16 + pathLength, value.size);
            }
        }
        m_shadow.set(m_values);
    }

private:
    static std::uint32_t checksum(const char *bytes, std::size_t length) {
        return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const unsigned char *>(bytes), length));
    }
    std::uint32_t numberAt(std::size_t offset) const {
        std::uint32_t number = 0;
        std::memcpy(&number, m_bytes.data() + offset, sizeof number);
        return number;
    }
    char *put(char *at, const void *bytes, std::size_t length) const {
        std::memcpy(at, bytes, length);
        return at + length;
    }
    char *put(char *at, std::size_t number) const {
        const auto word = static_cast<std::uint32_t>(number);
        return put(at, &word, sizeof word);
    }

    void pack() {
        char *at = put(m_bytes.data(), "ZAFSTORE", 8);
        at = put(at, 0x01020304);
        at = put(at, 1);
        at = put(at, sizeof(void *) * 8);
        at = put(at, m_values.all().size());
        ++m_generation;
        at = put(at, &m_generation, sizeof m_generation);
        const std::uint64_t size = m_bytes.size();
        at = put(at, &size, sizeof size);
        at = put(at, checksum(m_bytes.data(), headerSize - sizeof(std::uint32_t)));
        for (const Value &value : m_values.all()) {
            at = put(at, recordOverhead - sizeof(std::uint32_t) + value.path.size() + value.size);
            const char *begin = at;
            at = put(at, value.type);
            at = put(at, value.noOfElements);
            at = put(at, value.path.size());
            at = put(at, value.path.data(), value.path.size());
            at = put(at, m_values.contentOf(value), value.size);
            at = put(at, checksum(begin, static_cast<std::size_t>(at - begin)));
        }
        put(at, checksum(m_bytes.data(), static_cast<std::size_t>(at - m_bytes.data())));
    }

    Values &m_values;
    Shadow m_shadow;
    DurableFile m_file;
    absl::flat_hash_map<absl::string_view, const Value *> m_byPath;
    std::vector<char> m_bytes;
    std::uint64_t m_generation = 0;
};

} // namespace

std::unique_ptr<Keeper> makeBareFile(Values &values, const std::string &folder) {
    return std::make_unique<BareFile>(values, folder);
}

} // namespace speed
