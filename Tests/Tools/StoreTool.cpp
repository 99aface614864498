#include "StoreTool.h"

#include <sys/wait.h>
#include <unistd.h>

#include <sqlite3.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>

#include "FileStore.h"
#include "SqliteStore.h"

namespace storetool {

namespace fs = std::filesystem;

namespace {

class Silent : public storage::Report {
public:
    void add(storage::Severity, const std::string &) override {}
};

} // namespace

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(EitherKind); // not every program has a test of both
INSTANTIATE_TEST_SUITE_P(Kinds, EitherKind, testing::Bool(),
                         [](const auto &kind) { return kind.param ? std::string("Sqlite") : std::string("File"); });

std::string bytesOf(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

StoredValue text(const std::string &path, const std::string &content) {
    return {path, TYPE_STRING, static_cast<std::uint32_t>(content.size()), {content.begin(), content.end()}};
}

StoredValues radio() {
    return {single<std::int32_t>("Cfg/Radio/Gain", TYPE_INT32, 20),
            text("Cfg/Radio/Name", std::string("north mast\0\0\0\0\0\0", 16)),
            array<float>("Cfg/Radio/Tilt", TYPE_FLOAT_ARRAY, {0.5F, -1.25F, 2.F})};
}

StoredValues everySort() {
    return {single<std::int8_t>("a", TYPE_INT8, -128),
            array<std::int8_t>("b", TYPE_INT8_ARRAY, {-128, 127}),
            single<std::int16_t>("c", TYPE_INT16, -32768),
            array<std::int16_t>("d", TYPE_INT16_ARRAY, {}),
            single<std::int32_t>("e", TYPE_INT32, INT32_MIN),
            array<std::int32_t>("f", TYPE_INT32_ARRAY, {INT32_MIN, INT32_MAX}),
            single<std::uint8_t>("g", TYPE_UINT8, 255),
            array<std::uint8_t>("h", TYPE_UINT8_ARRAY, std::vector<std::uint8_t>(5000, 7)),
            single<std::uint16_t>("i", TYPE_UINT16, 65535),
            array<std::uint16_t>("j", TYPE_UINT16_ARRAY, {0, 65535}),
            single<std::uint32_t>("k", TYPE_UINT32, UINT32_MAX),
            array<std::uint32_t>("l", TYPE_UINT32_ARRAY, {UINT32_MAX}),
            single<std::uint32_t>("m", TYPE_BOOL, 2),
            array<std::uint32_t>("n", TYPE_BOOL_ARRAY, {0, 1, UINT32_MAX}),
            single<std::int8_t>("o", TYPE_CHAR, -1),
            array<std::int8_t>("p", TYPE_CHAR_ARRAY, {'x', 0, -1}),
            text("q", "plain"),
            text("r", std::string("behind\0nul", 10)),
            text("s", "\xFF\xFE no text"),
            single<float>("t", TYPE_FLOAT, -0.F),
            array<float>("u", TYPE_FLOAT_ARRAY, {0.1F, std::numeric_limits<float>::infinity(), std::nanf("0x123")}),
            single<double>("v", TYPE_DOUBLE, 5e-324),
            array<double>("w", TYPE_DOUBLE_ARRAY,
                          {-0., 0.1, -std::numeric_limits<double>::infinity(), std::nan("0x456"), 1e308}),
            single<std::int32_t>("path with blanks, 'quotes' and \"more\"\n", TYPE_INT32, 1),
            single<std::int32_t>("path \xFF that is no text", TYPE_INT32, 2)};
}

StoreTool::StoreTool() {
    std::string pattern = (fs::temp_directory_path() / "zaf-store-XXXXXX").string();
    EXPECT_NE(nullptr, mkdtemp(pattern.data()));
    m_folder = pattern;
}

StoreTool::~StoreTool() {
    std::error_code error;
    fs::permissions(m_folder, fs::perms::owner_all, fs::perm_options::add, error); // a test may have taken them
    fs::remove_all(m_folder, error);
}

Outcome StoreTool::run(const std::string &arguments) const {
    const std::string command = "cd '" + m_folder + "' && PATH='" + fs::path(ZAF_STORE).parent_path().string() +
                                "':$PATH; " + arguments + " >.out 2>.err";
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status)) << arguments;
    return {WEXITSTATUS(status), bytesOf(in(".out")), bytesOf(in(".err"))};
}

std::unique_ptr<storage::VariableStore> StoreTool::open(const std::string &file, bool isSqlite, Access access,
                                                        unsigned long location) const {
    std::unique_ptr<storage::VariableStore> store;
    if (isSqlite) {
        store = std::make_unique<storage::SqliteStore>(in(file), location);
    } else {
        store = std::make_unique<storage::FileStore>(in(file));
    }
    Silent report;
    EXPECT_EQ(eAF_S_OK, store->open(access, report));
    return store;
}

void StoreTool::make(const std::string &file, bool isSqlite, const StoredValues &values, unsigned long location) const {
    Silent report;
    const auto store = open(file, isSqlite, Access::readWrite, location);
    StoredValues before;
    ASSERT_EQ(eAF_S_OK, store->read(before, report));
    ASSERT_EQ(eAF_S_OK, store->write(values, report));
}

StoredValues StoreTool::valuesIn(const std::string &file, bool isSqlite, unsigned long location) const {
    Silent report;
    StoredValues values;
    EXPECT_EQ(eAF_S_OK, open(file, isSqlite, Access::readOnly, location)->read(values, report));
    return values;
}

void StoreTool::damage(const std::string &file) const {
    std::string bytes = bytesOf(in(file));
    for (std::size_t i = bytes.size() / 3; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(bytes[i] ^ 0x3C);
    }
    std::ofstream(in(file), std::ios::binary) << bytes;
}

void StoreTool::mend(const std::string &file, const std::string &sql) const {
    ASSERT_EQ(0, std::system(("sqlite3 '" + in(file) + "' \"" + sql + "\"").c_str()));
}

void StoreTool::cutShort(const std::string &file, const std::string &path) const {
    // Without room in the cache, new pages are written before their time.
    const std::string sql =
        "PRAGMA cache_size=1; BEGIN IMMEDIATE; UPDATE variable SET value=value||' ' WHERE path='" + path + "'";
    const pid_t host = fork();
    ASSERT_NE(-1, host);
    if (host == 0) {
        sqlite3 *database = nullptr;
        const bool isStoring = sqlite3_open(in(file).c_str(), &database) == SQLITE_OK &&
                               sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
        _exit(isStoring ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(host, waitpid(host, &status, 0));
    ASSERT_EQ(0, status);
    ASSERT_LT(0u, fs::file_size(in(file + "-journal")));
}

} // namespace storetool
