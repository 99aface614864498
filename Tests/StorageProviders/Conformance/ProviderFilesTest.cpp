// What is about files: for providers whose stores are such.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "Conformance.h"

namespace {

using test::Conformance;
using test::Firmware;
using test::setValue;
using test::TraceRecorder;
using test::valueOf;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

class ProviderFiles : public Conformance {
protected:
    ProviderFiles() { provider->close(); }

    /// A store that holds one value.
    void fill(const std::string &file, std::int32_t value) {
        ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
        Firmware filler;
        filler.single(filler.object("O"), "V", TYPE_INT32, value);
        ASSERT_EQ(eAF_S_OK, filler.store(*provider));
        provider->close();
    }

    static std::string bytesOf(const std::string &file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    /// Retrieves into a variable whose default is 70. @return what it holds then.
    std::int32_t retrieved(EAFResult expected) {
        EXPECT_EQ(expected, firmware.retrieve(*provider));
        return valueOf<std::int32_t>(variable);
    }

    const std::int32_t defaultValue = 70;
    Firmware firmware;
    CVariable *variable = firmware.single(firmware.object("O"), "V", TYPE_INT32, 1, &defaultValue);
};

TEST_F(ProviderFiles, AStartWithoutAStore_MakesNoneUntilSomethingIsStored) {
    const std::string file = folder.file("new.store");
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    ASSERT_EQ(eAF_S_OK, provider->table()->Initialize(1));
    EXPECT_EQ(70, retrieved(eAF_S_OK));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(eAF_S_OK, firmware.store(*provider));
    EXPECT_TRUE(fs::exists(file));
}

TEST_F(ProviderFiles, UnchangedValues_LeaveEveryFileAlone) {
    fill(folder.file("s.store"), 5);
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, folder.file("s.store")));
    EXPECT_EQ(5, retrieved(eAF_S_OK));
    std::vector<std::pair<std::string, fs::file_time_type>> before;
    for (const std::string &name : folder.files()) {
        before.emplace_back(name, fs::last_write_time(folder.file(name)));
    }
    ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
    std::vector<std::pair<std::string, fs::file_time_type>> after;
    for (const std::string &name : folder.files()) {
        after.emplace_back(name, fs::last_write_time(folder.file(name)));
    }
    EXPECT_EQ(before, after);
}

TEST_F(ProviderFiles, SetFile_RefusesNoNameAndALocationThatIsOpen) {
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider->setFile(1, ""));
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, folder.file("a")));
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, folder.file("b"))) << "until it is open";
    ASSERT_EQ(eAF_S_OK, provider->table()->Initialize(1));
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, provider->setFile(1, folder.file("c")));
}

TEST_F(ProviderFiles, AMissingFolder_IsACodeAndATraceThatNamesTheFile) {
    const std::string file = folder.file("missing/s.store");
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, provider->table()->Initialize(1));
    EXPECT_THAT(told(1), Contains(AllOf(HasSubstr(file), HasSubstr("folder"))));
    EXPECT_EQ(70, retrieved(eAF_E_INITIALIZATION_ERROR)) << "the start goes on with defaults";
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, firmware.store(*provider)) << "which must not replace what could not be read";
    EXPECT_THAT(told(1), Contains(AllOf(HasSubstr(file), HasSubstr("retrieve it first"))));
    fs::create_directory(folder.file("missing"));
    EXPECT_EQ(70, retrieved(eAF_S_OK));
    EXPECT_EQ(eAF_S_OK, firmware.store(*provider));
}

TEST_F(ProviderFiles, AFolderThatIsAFile_IsACode) {
    std::ofstream(folder.file("plain")) << "text";
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, folder.file("plain/s.store")));
    EXPECT_EQ(eAF_E_INITIALIZATION_ERROR, provider->table()->Initialize(1));
}

TEST_F(ProviderFiles, AFolderThatTakesNoFiles_IsACodeAndATraceAlsoForRoot) {
    const std::string file = "/proc/s.store";
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    TraceRecorder::reset();
    const EAFResult retrievedAll = firmware.retrieve(*provider);
    const EAFResult stored = firmware.store(*provider);
    EXPECT_THAT(stored, testing::Ge(eAF_E_FAILED)) << std::hex << retrievedAll;
    EXPECT_THAT(told(1), Contains(HasSubstr(file)));
    EXPECT_EQ(70, valueOf<std::int32_t>(variable));
}

TEST_F(ProviderFiles, AFolderOfTheStoresName_IsACodeAndStays) {
    const std::string file = folder.file("s.store");
    fs::create_directory(file);
    std::ofstream(file + "/kept") << "text";
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    TraceRecorder::reset();
    const EAFResult initialized = provider->table()->Initialize(1);
    EXPECT_THAT(initialized, testing::Ge(eAF_E_FAILED));
    EXPECT_THAT(told(1), Contains(HasSubstr(file)));
    EXPECT_EQ(70, retrieved(initialized));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, firmware.store(*provider));
    EXPECT_EQ("text", bytesOf(file + "/kept"));
}

TEST_F(ProviderFiles, AFileThatIsNoStore_IsLeftAloneByteByByte) {
    const std::string file = folder.file("letter.txt");
    const std::string text = "Dear reader,\nthis is no store, and somebody wants it back.\n" + std::string(5000, 'x');
    std::ofstream(file) << text;
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_INVALID_ARGUMENT, provider->table()->Initialize(1));
    EXPECT_THAT(told(1), Contains(AllOf(HasSubstr(file), HasSubstr("is left"))));
    EXPECT_EQ(70, retrieved(eAF_E_INVALID_ARGUMENT));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, firmware.store(*provider));
    EXPECT_EQ(text, bytesOf(file));
    EXPECT_THAT(folder.files(), Not(Contains(HasSubstr("damaged"))));
}

TEST_F(ProviderFiles, AStoreThatIsDamagedThroughout_IsSetAsideAndNothingIsOverwritten) {
    const std::string file = folder.file("s.store");
    fill(file, 5);
    std::string bytes = bytesOf(file);
    for (std::size_t i = bytes.size() / 2; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(bytes[i] ^ 0x5A);
    }
    std::ofstream(file, std::ios::binary) << bytes;
    std::ofstream(file + ".damaged-1") << "an earlier one";
    fs::remove(file + ".1"); // no generation before it either
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    TraceRecorder::reset();
    EXPECT_EQ(eAF_S_OK, provider->table()->Initialize(1));
    EXPECT_THAT(told(3), Contains(AllOf(HasSubstr(file), HasSubstr("damaged"), HasSubstr(".damaged-2"))));
    EXPECT_EQ(70, retrieved(eAF_S_OK));
    EXPECT_EQ(bytes, bytesOf(file + ".damaged-2"));
    EXPECT_EQ("an earlier one", bytesOf(file + ".damaged-1"));
    EXPECT_EQ(eAF_S_OK, firmware.store(*provider));
    setValue(variable, 1);
    EXPECT_EQ(70, retrieved(eAF_S_OK));
}

TEST_F(ProviderFiles, AStoreThatAnotherProcessHolds_IsACodeThatNamesTheProcess) {
    const std::string file = folder.file("s.store");
    fill(file, 5);
    int held[2];
    int over[2];
    ASSERT_EQ(0, pipe(held));
    ASSERT_EQ(0, pipe(over));
    const pid_t holder = fork();
    if (holder == 0) {
        char byte = 0;
        ::close(over[1]);
        const bool isHeld = provider->setFile(1, file) == eAF_S_OK && provider->table()->Initialize(1) == eAF_S_OK;
        byte = isHeld ? 'y' : 'n';
        static_cast<void>(!write(held[1], &byte, 1));
        static_cast<void>(!read(over[0], &byte, 1));
        _exit(0);
    }
    char answer = 0;
    ASSERT_EQ(1, read(held[0], &answer, 1));
    ASSERT_EQ('y', answer);
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    TraceRecorder::reset();
    EXPECT_EQ(eAF_E_ALREADY_INITIALIZED, provider->table()->Initialize(1));
    EXPECT_THAT(told(1), Contains(AllOf(HasSubstr(file), HasSubstr(std::to_string(holder)))));
    EXPECT_EQ(70, retrieved(eAF_E_ALREADY_INITIALIZED));
    EXPECT_EQ(eAF_E_NOT_INITIALIZED, firmware.store(*provider)) << "the defaults are not for the other's store";
    ::close(over[1]);
    ASSERT_EQ(holder, waitpid(holder, nullptr, 0));
    EXPECT_EQ(5, retrieved(eAF_S_OK)) << "the lock goes with its process";
    for (const int end : {held[0], held[1], over[0]}) {
        ::close(end);
    }
}

TEST_F(ProviderFiles, AStoreThatCanOnlyBeRead_IsReadAndRefusesToBeWritten) {
    const std::string file = folder.file("s.store");
    fill(file, 5);
    for (const std::string &name : folder.files()) {
        fs::permissions(folder.file(name), fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    }
    fs::permissions(folder.name(),
                    fs::perms::all & ~(fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write));
    // Nothing is read-only to root.
    const pid_t child = fork();
    if (child == 0) {
        if (getuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
            _exit(77);
        }
        bool isRight = provider->setFile(1, file) == eAF_S_OK && provider->table()->Initialize(1) == eAF_S_OK;
        isRight = isRight && firmware.retrieve(*provider) == eAF_S_OK && valueOf<std::int32_t>(variable) == 5;
        setValue(variable, 6);
        TraceRecorder::reset();
        isRight = isRight && firmware.store(*provider) == eAF_E_WRONG_ACCESS;
        const std::vector<std::string> texts = told(1);
        isRight = isRight && texts.size() == 1 && texts[0].find(file) != std::string::npos &&
                  texts[0].find("writable") != std::string::npos;
        _exit(isRight ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    fs::permissions(folder.name(), fs::perms::owner_all);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status)) << "77: it could not become another user";
    for (const std::string &name : folder.files()) {
        fs::permissions(folder.file(name), fs::perms::owner_read | fs::perms::owner_write);
    }
    ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
    EXPECT_EQ(5, retrieved(eAF_S_OK));
}

/// A host whose system lets no file grow beyond a limit.
class ALimitOfFileSizes : public ProviderFiles {
protected:
    ALimitOfFileSizes() {
        variables.set(5);
        EXPECT_EQ(eAF_S_OK, provider->setFile(1, file));
        EXPECT_EQ(eAF_S_OK, variables.firmware.store(*provider));
        provider->close();
    }

    struct Variables {
        void set(std::int32_t value) {
            setValue(number, value);
            test::setContent(block, std::vector<unsigned char>(size, static_cast<unsigned char>(value)));
        }
        bool hold(std::int32_t value) const {
            return valueOf<std::int32_t>(number) == value &&
                   test::contentOf(block) == std::vector<unsigned char>(size, static_cast<unsigned char>(value));
        }

        static constexpr std::uint32_t size = 20000;
        Firmware firmware;
        CStorageObject *object = firmware.object("O");
        CVariable *number = firmware.single(object, "V", TYPE_INT32, 1);
        CVariable *block = firmware.variable(object, "B", TYPE_UINT8_ARRAY, size, std::vector<unsigned char>(size));
    };

    static void limit(rlim_t bytes) {
        rlimit limits{};
        ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &limits));
        limits.rlim_cur = std::min(bytes, limits.rlim_max);
        ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limits));
    }

    /// Nothing may be written, the file may grow to its half, all but the last byte of it may be there.
    std::vector<rlim_t> limits() const {
        const auto whole = static_cast<rlim_t>(fs::file_size(file));
        return {0, whole / 2, whole - 1};
    }

    void start() {
        ASSERT_EQ(eAF_S_OK, provider->setFile(1, file));
        variables.set(0);
        ASSERT_EQ(eAF_S_OK, variables.firmware.retrieve(*provider));
    }

    /// @return how the host's own process ended, as waitpid tells.
    static int ended(const std::function<void()> &host) {
        const pid_t child = fork();
        if (child == 0) {
            const rlimit noCore{};
            setrlimit(RLIMIT_CORE, &noCore);
            host();
            _exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return status;
    }

    /// What the next host finds.
    void expectStored(std::int32_t value) {
        start();
        EXPECT_TRUE(variables.hold(value)) << valueOf<std::int32_t>(variables.number);
        provider->close();
    }

    const std::string file = folder.file("s.store");
    Variables variables;
};

TEST_F(ALimitOfFileSizes, WhoseSignalIsIgnored_IsACodeAndATraceThatKeepTheOldValues) {
    for (const rlim_t bytes : limits()) {
        for (const bool isLifted : {false, true}) {
            SCOPED_TRACE(std::to_string(bytes) + (isLifted ? " bytes, lifted" : " bytes"));
            const int status = ended([&] {
                ASSERT_NE(SIG_ERR, std::signal(SIGXFSZ, SIG_IGN));
                start();
                variables.set(6);
                TraceRecorder::reset();
                limit(bytes);
                EXPECT_EQ(eAF_E_FAILED, variables.firmware.store(*provider));
                EXPECT_THAT(told(1), Contains(HasSubstr(file)));
                EXPECT_EQ(eAF_E_FAILED, variables.firmware.store(*provider)) << "it stands in the way still";
                if (isLifted) {
                    limit(RLIM_INFINITY);
                    EXPECT_EQ(eAF_S_OK, variables.firmware.store(*provider));
                }
            });
            EXPECT_EQ(0, status);
            expectStored(isLifted ? 6 : 5);
            start();
            variables.set(5);
            EXPECT_EQ(eAF_S_OK, variables.firmware.store(*provider));
            provider->close();
        }
    }
}

TEST_F(ALimitOfFileSizes, WhoseSignalIsNotIgnored_EndsTheHostAndKeepsTheOldValues) {
    for (const rlim_t bytes : limits()) {
        SCOPED_TRACE(std::to_string(bytes) + " bytes");
        const int status = ended([&] {
            ASSERT_NE(SIG_ERR, std::signal(SIGXFSZ, SIG_DFL));
            start();
            variables.set(6);
            limit(bytes);
            variables.firmware.store(*provider);
        });
        ASSERT_TRUE(WIFSIGNALED(status)) << status;
        EXPECT_EQ(SIGXFSZ, WTERMSIG(status));
        expectStored(5);
    }
}

} // namespace
