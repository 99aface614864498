// Names of a store that are links, or that do not begin at the root: what they lead to is found once, and where the
// system does not tell it, nothing is written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>

#include "FileStoreFixture.h"
#include "SystemCalls.h"

namespace {

namespace fs = std::filesystem;
using storage::Access;
using storage::FileStore;
using storage::StoredValues;
using test::SystemCalls;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

class FileNames : public test::FileStoreFixture {
protected:
    FileNames() { fs::current_path(folder.name()); }
    ~FileNames() override { fs::current_path(m_earlier); }
    FileNames(const FileNames &) = delete;
    FileNames &operator=(const FileNames &) = delete;

    /// A host that is started with this name and stores; memory that the system lacks is no memory.
    EAFResult storeUnder(const std::string &name, std::int32_t content) {
        try {
            FileStore store(name);
            EAFResult code = store.open(Access::readWrite, messages);
            StoredValues read;
            if (code == eAF_S_OK) {
                code = store.read(read, messages);
            }
            return code == eAF_S_OK ? store.write({value(content)}, messages) : code;
        } catch (const std::bad_alloc &) {
            return eAF_E_OUT_OF_MEMORY;
        }
    }

private:
    const fs::path m_earlier = fs::current_path();
};

TEST_F(FileNames, ASymbolicLink_StaysOneAndLeadsToTheNewGeneration) {
    fs::create_directory(in("data"));
    for (const char *target : {"data/real", "data/other"}) { // there, and not there yet
        const std::string link = in("link");
        fs::remove(link);
        fs::create_symlink(target, link);
        for (std::int32_t i = 1; i <= 2; ++i) {
            FileStore store(link);
            EXPECT_EQ(in(target), store.name());
            ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
            ASSERT_EQ(eAF_S_OK, store.write({value(i)}, messages));
        }
        EXPECT_TRUE(fs::is_symlink(link));
        EXPECT_TRUE(fs::is_regular_file(in(std::string(target) + ".1")));
        EXPECT_FALSE(fs::exists(link + ".1"));
    }
}

TEST_F(FileNames, ARelativeName_IsTakenAsItStandsWhenTheStoreIsMade) {
    const fs::path earlier = fs::current_path();
    fs::current_path(folder.name());
    FileStore store("./x/../s");
    fs::current_path(earlier);
    EXPECT_EQ(file, store.name());
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    ASSERT_EQ(eAF_S_OK, store.write({value(1)}, messages));
    EXPECT_TRUE(fs::exists(file));
}

/// The link was taken for the store's file, renamed over, and the values left the disk that they were meant for: every
/// operation answered that all was well.
TEST_F(FileNames, ALinkThatCanNotBeReadOnce_IsNotReplaced) {
    for (const std::string &name : {in("link"), std::string("link")}) {
        for (const int error : {EIO, EACCES, ELOOP, ENOMEM}) {
            for (std::size_t number = 0;; ++number) {
                SCOPED_TRACE(name + ", call " + std::to_string(number) + ": " + std::strerror(error));
                fs::remove_all(in("data"));
                fs::create_directory(in("data"));
                fs::remove(in("link"));
                fs::create_symlink("data/s", in("link"));
                ASSERT_EQ(eAF_S_OK, storeUnder(in("data/s"), 1));
                messages.clear();
                std::string call;
                EAFResult code = eAF_S_OK;
                {
                    SystemCalls calls(folder.name());
                    calls.fail(number, error, SystemCalls::Lasting::once);
                    code = storeUnder(name, 2);
                    ASSERT_EQ(1u, calls.failures());
                    call = calls.calls()[number];
                }
                ASSERT_TRUE(fs::is_symlink(in("link")));
                const auto isName = [](const fs::directory_entry &entry) { return entry.path().filename() != "data"; };
                EXPECT_EQ(1, std::count_if(fs::directory_iterator(folder.name()), {}, isName)) << "the link alone";
                if (call.rfind("readlink", 0) != 0 && call != "getcwd") {
                    EXPECT_EQ(name == "link" ? 5u : 4u, number);
                    break; // the name is behind it
                }
                EXPECT_EQ(error == ENOMEM ? eAF_E_OUT_OF_MEMORY : eAF_E_INITIALIZATION_ERROR, code);
                if (error != ENOMEM) {
                    EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr("the name " + name + " can not be"),
                                                                     HasSubstr(std::strerror(error)))));
                }
                EXPECT_EQ(eAF_S_OK, storeUnder(name, 3)) << "the next start";
                file = in("data/s");
                EXPECT_EQ(3, readOne());
            }
        }
    }
}

TEST_F(FileNames, ANameThatCanNotBeFollowed_IsSaidByEachOpenAndNothingIsTouched) {
    fs::create_symlink("loop", in("loop"));
    FileStore store("loop");
    EXPECT_EQ("loop", store.name());
    for (const Access access : {Access::readWrite, Access::readOnly}) {
        messages.clear();
        EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.open(access, messages));
        EXPECT_THAT(messages.errors(), ElementsAre(AllOf(HasSubstr("the name loop can not be followed"),
                                                         HasSubstr("where " + in("loop") + " leads"),
                                                         HasSubstr("see where its links lead"))));
        EXPECT_EQ(eAF_E_NOT_INITIALIZED, store.write({value(1)}, messages));
    }
    fs::remove(in("loop"));
    EXPECT_TRUE(fs::is_empty(folder.name()));
}

TEST_F(FileNames, ARelativeNameInAFolderThatWasRemoved_CanNotBeFollowed) {
    fs::create_directory(in("gone"));
    fs::current_path(in("gone"));
    fs::remove(in("gone"));
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, storeUnder("s", 1));
    EXPECT_THAT(messages.errors(),
                ElementsAre(AllOf(HasSubstr("the name s can not be followed"), HasSubstr("the process's folder"),
                                  HasSubstr("from the root on"))));
}

} // namespace
