// Each system call of a store or a retrieve fails in turn, with each error that matters, once or from there on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "FileStoreFixture.h"
#include "SystemCalls.h"

namespace {

using storage::Access;
using storage::FileStore;
using storage::StoredValues;
using test::SystemCalls;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Files = test::TemporaryFolder::Files;
using Lasting = SystemCalls::Lasting;

struct Fault {
    int error;
    Lasting lasting;
};
void PrintTo(const Fault &fault, std::ostream *out) {
    *out << std::strerror(fault.error) << (fault.lasting == Lasting::once ? " once" : " for ever");
}

std::string nameOf(const testing::TestParamInfo<Fault> &info) {
    return std::string(strerrorname_np(info.param.error)) + (info.param.lasting == Lasting::once ? "Once" : "ForEver");
}

std::vector<Fault> everyFault() {
    std::vector<Fault> faults;
    for (const int error : {EIO, ENOSPC, EDQUOT, EROFS, EACCES, EPERM, EMFILE, ENFILE, ENOMEM}) {
        faults.push_back({error, Lasting::once});
        faults.push_back({error, Lasting::forEver});
    }
    return faults;
}

EAFResult codeOfAWrite(int error) {
    switch (error) {
    case EROFS:
    case EACCES:
    case EPERM:
        return eAF_E_WRONG_ACCESS;
    case ENOMEM:
        return eAF_E_OUT_OF_MEMORY;
    default:
        return eAF_E_FAILED;
    }
}

class FileFaults : public test::FileStoreFixture, public testing::WithParamInterface<Fault> {
protected:
    /// Runs an operation with its first call failing, its second, and so on, until it makes no such call.
    /// @return the number of calls that the operation makes.
    template <class Prepare, class Operation, class Check>
    std::size_t failEachCallOf(Prepare prepare, Operation operation, Check check) {
        for (std::size_t number = 0;; ++number) {
            prepare();
            const std::size_t descriptors = test::openDescriptors();
            messages.clear();
            wasThrown = false;
            std::string call;
            EAFResult code = eAF_S_OK;
            {
                SystemCalls calls(folder.name());
                calls.fail(number, GetParam().error, GetParam().lasting);
                try {
                    code = operation();
                } catch (const std::bad_alloc &) { // of a name that could not be resolved, before there is a store
                    code = eAF_E_OUT_OF_MEMORY;
                    wasThrown = true;
                }
                if (calls.failures() == 0) {
                    EXPECT_EQ(eAF_S_OK, code);
                    std::printf("[  FIGURES ] %zu calls failed\n", number);
                    return number;
                }
                call = calls.calls().at(number);
            }
            SCOPED_TRACE("call " + std::to_string(number) + ": " + call);
            EXPECT_EQ(descriptors, test::openDescriptors());
            check(call, code);
            if (HasFatalFailure()) {
                return number;
            }
        }
    }

    /// Two generations: 1, then 2.
    void prepare() {
        folder.replaceFiles({});
        ASSERT_EQ(eAF_S_OK, write({value(1)}));
        ASSERT_EQ(eAF_S_OK, write({value(2)}));
        m_prepared = folder.files();
    }
    const Files &prepared() const { return m_prepared; }

    bool wasThrown = false; ///< By the operation.

private:
    Files m_prepared;
};
INSTANTIATE_TEST_SUITE_P(Errors, FileFaults, testing::ValuesIn(everyFault()), nameOf);

TEST_P(FileFaults, OfAWrite_IsACodeAndLeavesTheOldValues) {
    const bool isOnce = GetParam().lasting == Lasting::once;
    std::set<std::string> survived;
    std::unique_ptr<FileStore> store;
    const std::size_t noOfCalls = failEachCallOf(
        [&] {
            store.reset();
            prepare();
            store = std::make_unique<FileStore>(file);
            ASSERT_EQ(eAF_S_OK, store->open(Access::readWrite, messages));
        },
        [&] { return store->write({value(3)}, messages); },
        [&](const std::string &call, EAFResult code) {
            StoredValues found;
            ASSERT_EQ(eAF_S_OK, store->read(found, messages));
            if (code == eAF_S_OK) {
                survived.insert(call);
                EXPECT_EQ(StoredValues{value(3)}, found);
            } else {
                EXPECT_THAT(messages.errors(), Not(IsEmpty()));
                EXPECT_THAT(messages.errors().front(),
                            AllOf(HasSubstr(file), HasSubstr(std::strerror(GetParam().error))));
                if (isOnce) {
                    EXPECT_EQ(StoredValues{value(2)}, found);
                    EXPECT_EQ(prepared().at("s"), test::bytesOf(file)) << "under its own name";
                } else {
                    EXPECT_TRUE(found == StoredValues{value(2)} || found == StoredValues{value(3)});
                }
                const bool isOfReading =
                    call.rfind("read", 0) == 0 || call.rfind("fstat", 0) == 0 || call == "open s" || call == "open s.1";
                if (isOnce && !isOfReading) {
                    EXPECT_EQ(codeOfAWrite(GetParam().error), code);
                }
            }
            EXPECT_EQ(eAF_S_OK, store->write({value(4)}, messages)) << "the same store succeeds afterwards";
            store.reset();
            EXPECT_EQ(4, readOne());
            EXPECT_EQ(0u, folder.files().count("s.new"));
        });
    EXPECT_GE(noOfCalls, 20u) << "calls that a write makes";
    // Done without: the second copy is made another way, and what was only read is closed without a question. An input
    // error may pass, and is tried again.
    std::set<std::string> dispensable = {"close"};
    if (isOnce) {
        dispensable.insert({"link s", "close s", "close s.1"});
    }
    if (isOnce && GetParam().error == EIO) {
        dispensable.insert({"open s", "fstat s", "read s", "open s.1", "fstat s.1", "read s.1"});
    }
    EXPECT_EQ(dispensable, survived);
}

TEST_P(FileFaults, OfTheFirstWrite_IsACodeAndLeavesNoStore) {
    const bool isOnce = GetParam().lasting == Lasting::once;
    std::unique_ptr<FileStore> store;
    failEachCallOf(
        [&] {
            store.reset();
            folder.replaceFiles({});
            store = std::make_unique<FileStore>(file);
            ASSERT_EQ(eAF_S_OK, store->open(Access::readWrite, messages));
        },
        [&] { return store->write({value(3)}, messages); },
        [&](const std::string &, EAFResult code) {
            StoredValues found;
            ASSERT_EQ(eAF_S_OK, store->read(found, messages));
            if (code == eAF_S_OK) {
                EXPECT_EQ(StoredValues{value(3)}, found);
            } else if (isOnce) {
                EXPECT_THAT(found, IsEmpty());
                EXPECT_THAT(folder.files(), IsEmpty());
            }
            EXPECT_EQ(eAF_S_OK, store->write({value(4)}, messages));
        });
}

TEST_P(FileFaults, OfAStartAndARetrieve_IsACodeOrDoneWithoutAndLosesNothing) {
    const std::size_t noOfCalls =
        failEachCallOf([&] { prepare(); },
                       [&] {
                           EAFResult code = eAF_S_OK;
                           const StoredValues found = read(code);
                           EXPECT_TRUE(code != eAF_S_OK || found == StoredValues{value(2)} ||
                                       (GetParam().error == EIO && found == StoredValues{value(1)}))
                               << "an unreadable store is no empty one";
                           return code;
                       },
                       [&](const std::string &, EAFResult code) {
                           EXPECT_TRUE(!wasThrown || GetParam().error == ENOMEM);
                           if (code != eAF_S_OK && !wasThrown) {
                               EXPECT_THAT(messages.errors(), Not(IsEmpty()));
                               EXPECT_THAT(messages.errors().front(), HasSubstr(file));
                           }
                           if (GetParam().error != EIO) { // of which a second copy that is lost is one meaning
                               EXPECT_EQ(prepared(), folder.files());
                           }
                           EXPECT_EQ(2, readOne());
                       });
    EXPECT_GE(noOfCalls, 18u) << "calls that a start and a retrieve make";
}

TEST_P(FileFaults, OfSettingADamagedStoreAside_IsACodeOrDoneWithoutAndOverwritesNothing) {
    Files damaged;
    failEachCallOf(
        [&] {
            prepare();
            damaged = prepared();
            damaged["s"][50] = static_cast<char>(damaged["s"][50] ^ 1);
            folder.replaceFiles(damaged);
        },
        [&] {
            FileStore store(file);
            const EAFResult opened = store.open(Access::readWrite, messages);
            return opened != eAF_S_OK ? opened : store.write({value(3)}, messages);
        },
        [&](const std::string &, EAFResult) {
            bool isThere = false;
            for (const auto &[name, bytes] : folder.files()) {
                isThere = isThere || bytes == damaged["s"];
            }
            EXPECT_TRUE(isThere) << "the damaged file, under whatever name";
            const std::int32_t found = readOne();
            EXPECT_TRUE(found == 1 || found == 3) << found;
        });
}

class FileInterruptions : public test::FileStoreFixture {};

TEST_F(FileInterruptions, OfEveryCall_AndHalfTransfers_AreContinued) {
    const storage::StoredValue large{"Large", TYPE_UINT8_ARRAY, 5000, std::vector<unsigned char>(5000, 3)};
    SystemCalls calls(folder.name());
    calls.interrupt();
    for (std::int32_t i = 1; i <= 3; ++i) {
        ASSERT_EQ(eAF_S_OK, write({value(i), large}));
    }
    EXPECT_EQ(3, readOne());
    EXPECT_THAT(messages.complaints(), IsEmpty());
    EXPECT_GT(calls.failures(), 30u);
}

TEST_F(FileInterruptions, AFolderThatNeedsNoSync_IsNoFailure) {
    SystemCalls calls(folder.name());
    calls.failEach("fsync", EINVAL);
    EXPECT_EQ(eAF_S_OK, write({value(1)}));
    EXPECT_EQ(2u, calls.failures());
    EXPECT_THAT(messages.complaints(), IsEmpty());
}

TEST_F(FileInterruptions, AFolderThatCanNotBeSynced_TakesTheNewGenerationBackAndIsSaidAtTheStart) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    ASSERT_EQ(eAF_S_OK, write({value(2)}));
    FileStore store(file);
    SystemCalls calls(folder.name());
    calls.failEach("fsync", EIO);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages)) << "its values can be read";
    EXPECT_THAT(messages.warnings(), testing::ElementsAre(AllOf(HasSubstr(file), HasSubstr("power cut"))));
    EXPECT_EQ(eAF_E_FAILED, store.write({value(3)}, messages));
    StoredValues found;
    ASSERT_EQ(eAF_S_OK, store.read(found, messages));
    EXPECT_EQ(StoredValues{value(2)}, found) << "a later store must not find it there and write nothing";
}

TEST_F(FileInterruptions, AFolderThatWentAway_IsACodeThatNamesIt) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    FileStore store(file);
    ASSERT_EQ(eAF_S_OK, store.open(Access::readWrite, messages));
    std::filesystem::rename(folder.name(), folder.name() + "-away");
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, store.write({value(2)}, messages));
    EXPECT_THAT(messages.errors(), testing::ElementsAre(AllOf(HasSubstr(file), HasSubstr("make its folder"))));
    std::filesystem::rename(folder.name() + "-away", folder.name());
    EXPECT_EQ(eAF_S_OK, store.write({value(3)}, messages));
    StoredValues found;
    ASSERT_EQ(eAF_S_OK, store.read(found, messages));
    EXPECT_EQ(StoredValues{value(3)}, found);
}

TEST_F(FileInterruptions, AWriteThatTakesNothing_IsAFailureAndNoEndlessLoop) {
    SystemCalls calls(folder.name());
    calls.takeNothing();
    EXPECT_EQ(eAF_E_FAILED, write({value(1)}));
    EXPECT_THAT(folder.files(), IsEmpty());
}

TEST_F(FileInterruptions, AFileThatIsCutWhileItIsRead_IsAsDamagedAsOneThatIsEmpty) {
    ASSERT_EQ(eAF_S_OK, write({value(1)}));
    FileStore store(file);
    {
        SystemCalls calls(folder.name());
        calls.giveNothing();
        EXPECT_EQ(eAF_E_FAILED, store.open(Access::readOnly, messages));
    }
    EXPECT_THAT(messages.errors(), testing::ElementsAre(AllOf(HasSubstr(file), HasSubstr("damaged"))));
    EXPECT_EQ(1, readOne());
}

} // namespace
