#include "StoreSupport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "VariableType.h"

void storage::PrintTo(const StoredValue &value, std::ostream *out) {
    *out << value.path << ' ' << typeName(value.type) << '[' << value.noOfElements << "] " << std::hex;
    for (std::size_t i = 0; i < std::min<std::size_t>(value.content.size(), 32); ++i) {
        *out << std::setw(2) << std::setfill('0') << static_cast<unsigned>(value.content[i]);
    }
    *out << std::dec;
}

namespace test {

using storage::Access;
using storage::Severity;
using storage::SqliteStore;
using storage::StoredValue;
using storage::StoredValues;

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "zelaf-sqlite-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder: " + name);
    }
    m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::vector<std::string> TemporaryFolder::names() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReportRecorder::texts(Severity severity) const {
    std::string all;
    for (const Line &line : lines) {
        if (line.severity == severity) {
            all += line.text + "\n";
        }
    }
    return all;
}

StoredValue int32Value(const std::string &path, std::int32_t number) {
    return valueOf<std::int32_t>(path, TYPE_INT32, {number});
}

StoredValue stringValue(const std::string &path, const std::string &bytes) {
    return {path, TYPE_STRING, static_cast<std::uint32_t>(bytes.size()), {bytes.begin(), bytes.end()}};
}

std::string contentsOf(const std::string &file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream contents;
    contents << in.rdbuf();
    return contents.str();
}

void writeFile(const std::string &file, const std::string &contents) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << contents;
    if (!out.flush()) {
        throw std::runtime_error("could not write " + file);
    }
}

StoredValues sorted(StoredValues values) {
    std::sort(values.begin(), values.end(), [](const StoredValue &a, const StoredValue &b) { return a.path < b.path; });
    return values;
}

std::string outputOf(const std::string &command) {
    std::string output;
    // NOLINTNEXTLINE(cert-env33-c): programs are asked as a user would ask them; names in here are the test's own
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
    std::array<char, 4096> bytes{};
    for (std::size_t read = 1; pipe != nullptr && read > 0;) {
        read = fread(bytes.data(), 1, bytes.size(), pipe.get());
        output.append(bytes.data(), read);
    }
    return output;
}

std::string sqlite3Program(const std::string &file, const std::string &statements) {
    const std::string input = file + ".sql";
    writeFile(input, statements);
    std::string answer = outputOf("sqlite3 -batch '" + file + "' < '" + input + "'");
    std::filesystem::remove(input);
    return answer;
}

StoredValues SqliteStores::stored(unsigned long locationId) {
    SqliteStore store(file, locationId);
    StoredValues values;
    EXPECT_EQ(eAF_S_OK, store.open(Access::readWrite, report)) << report.errors();
    EXPECT_EQ(eAF_S_OK, store.read(values, report)) << report.errors();
    return sorted(std::move(values));
}

void SqliteStores::store(const StoredValues &values, unsigned long locationId) {
    SqliteStore store(file, locationId);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, report)) << report.errors();
    ASSERT_EQ(eAF_S_OK, store.write(values, report)) << report.errors();
}

} // namespace test
