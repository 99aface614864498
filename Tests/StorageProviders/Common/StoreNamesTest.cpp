#include "StoreNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

namespace fs = std::filesystem;
using storage::firstFree;
using storage::ResolvedName;
using storage::resolveName;
using testing::HasSubstr;

class StoreNamesTest : public testing::Test {
protected:
    StoreNamesTest() {
        std::string pattern = (fs::canonical(fs::temp_directory_path()) / "names-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder " + pattern);
        }
        m_folder = pattern;
    }
    ~StoreNamesTest() override {
        fs::current_path(m_earlier);
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
    }
    StoreNamesTest(const StoreNamesTest &) = delete;
    StoreNamesTest &operator=(const StoreNamesTest &) = delete;

    std::string in(const std::string &name) const { return m_folder + "/" + name; }

    /// What the name leads to; says why where it can not be followed.
    static std::string fileOf(const std::string &name) {
        const ResolvedName resolved = resolveName(name);
        EXPECT_EQ("", resolved.problem);
        return resolved.file;
    }

    static void make(const std::string &file) { std::ofstream(file) << "x"; }

    std::string m_folder;

private:
    const fs::path m_earlier = fs::current_path();
};

TEST_F(StoreNamesTest, Resolve_FollowsLinksWhereverTheyStandAndTakesDotsOut) {
    fs::create_directories(in("data/newest"));
    fs::create_directory_symlink("data/newest", in("current"));
    fs::create_symlink(in("data") + "/../data/./newest/../real", in("data/newest/link")); // from the root on
    fs::create_symlink("link", in("data/newest/second"));
    EXPECT_EQ(in("data/real"), fileOf(in("current/second")));
    EXPECT_EQ(in("data/x"), fileOf(in("current/../x"))) << "a link's parent is its target's";
    EXPECT_EQ(in("a/c"), fileOf(in("./a//b/../c"))) << "nothing needs to be there";
    make(in("file"));
    EXPECT_EQ(in("file/below"), fileOf(in("file/below"))) << "nor to be a folder";
    EXPECT_EQ("/", fileOf("/../.."));
    EXPECT_EQ("/x", fileOf("/../x"));
}

TEST_F(StoreNamesTest, Resolve_TakesARelativeNameFromTheProcesssFolderOn) {
    fs::create_symlink("data", in("link"));
    fs::current_path(m_folder);
    EXPECT_EQ(in("s"), fileOf("s"));
    EXPECT_EQ(in("data"), fileOf("./x/../link"));
    EXPECT_EQ(in("file:s"), fileOf("file:s"));
}

TEST_F(StoreNamesTest, Resolve_OfARelativeNameInAFolderThatWasRemoved_SaysSo) {
    fs::create_directory(in("gone"));
    fs::current_path(in("gone"));
    fs::remove(in("gone"));
    const ResolvedName resolved = resolveName("s");
    EXPECT_EQ("s", resolved.file);
    EXPECT_EQ("the name s can not be followed, because the process's folder can not be told (No such file or "
              "directory): name the file by another path, from the root on",
              resolved.problem);
    EXPECT_EQ(in("s"), fileOf(in("s"))) << "a name from the root on needs no folder";
}

TEST_F(StoreNamesTest, Resolve_OfANameThatIsTooLong_SaysSo) {
    const std::string longest(255, 'n');
    EXPECT_EQ(in(longest), fileOf(in(longest)));
    const std::string name = in(longest + "n");
    const ResolvedName resolved = resolveName(name);
    EXPECT_EQ(name, resolved.file);
    EXPECT_EQ("the name " + name + " can not be followed, because where " + name +
                  " leads can not be told (File name too long): name the file by another path, from the root on",
              resolved.problem);
}

TEST_F(StoreNamesTest, Resolve_FollowsFortyLinksAndNoMore) {
    for (int link = 0; link < 42; ++link) {
        fs::create_symlink(std::to_string(link), in(std::to_string(link + 1)));
    }
    EXPECT_EQ(in("0"), fileOf(in("40")));
    EXPECT_EQ("the name " + in("41") + " can not be followed, because where " + in("1") +
                  " leads can not be told (Too many levels of symbolic links): see where its links lead, or name "
                  "another file",
              resolveName(in("41")).problem);
    fs::create_symlink("loop", in("loop"));
    EXPECT_THAT(resolveName(in("loop/s")).problem, HasSubstr(in("loop") + " leads can not be told (Too many levels"));
}

TEST_F(StoreNamesTest, FirstFree_IsTheFirstNumberThatNobodyHas) {
    std::string name;
    EXPECT_EQ(0, firstFree(in("s."), "", name));
    EXPECT_EQ(in("s.1"), name);
    make(in("s.1"));
    fs::create_symlink("nowhere", in("s.2"));
    EXPECT_EQ(0, firstFree(in("s."), "", name));
    EXPECT_EQ(in("s.3"), name) << "a link is somebody's, wherever it leads";
    make(in("s.3-journal"));
    EXPECT_EQ(0, firstFree(in("s."), "", name));
    EXPECT_EQ(in("s.3"), name);
    EXPECT_EQ(0, firstFree(in("s."), "-journal", name));
    EXPECT_EQ(in("s.4"), name);
}

TEST_F(StoreNamesTest, FirstFree_OfWhatCanNotBeTold_IsTheError) {
    std::string name;
    EXPECT_EQ(ENAMETOOLONG, firstFree(in(std::string(255, 'n')), "", name));
    EXPECT_EQ(ENAMETOOLONG, firstFree(in(std::string(250, 'n')), "-journal", name)) << "of what goes with it";
    EXPECT_EQ(0, firstFree(in(std::string(250, 'n')), "", name));
    make(in("file"));
    EXPECT_EQ(ENOTDIR, firstFree(in("file/s."), "", name));
}

} // namespace
