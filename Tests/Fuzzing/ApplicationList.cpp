// Operations on the application list and the server port, chosen by the fuzzer, against a list of its own. The groups
// that a start and a stop run are there or not, and fail or not.
#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "CApplicationFramework.h"
#include "CModuleManager_c.h"
#include "FuzzInput.h"
#include "Harness.h"
#include "TraceRecorder.h"

namespace {

using fuzz::FuzzInput;
using test::Line;

constexpr std::uint32_t noOfApplications = 4;

/// What the applications answer, and in which order they were asked.
std::array<EAFResult, noOfApplications> answers;
std::array<const char *, noOfApplications> names;
std::vector<std::size_t> asked;

template <std::size_t number>
EAFResult initialize() {
    asked.push_back(number);
    return answers[number];
}

template <std::size_t number>
const char *nameOf() {
    return names[number];
}

std::array<SApplicationDescriptor, noOfApplications> applications{
    {{initialize<0>, nameOf<0>}, {initialize<1>, nameOf<1>}, {initialize<2>, nameOf<2>}, {initialize<3>, nameOf<3>}}};

/// The callback of phase 10, which group 0 runs, and of phase 11, which group 1 does.
EAFResult phaseAnswer;
std::vector<std::uint32_t> phases;

EAFResult onPhase(void *, std::uint32_t phaseId, ECallbackPriority) {
    phases.push_back(phaseId);
    return phaseAnswer;
}

SModuleCallback callback{nullptr, onPhase};

class Walk {
public:
    explicit Walk(FuzzInput &input) : m_input(input) {
        CApplicationFramework_UnInitialize();
        CModuleManager_UnInitialize();
        for (const std::uint32_t group : {0u, 1u}) {
            m_hasGroup[group] = !m_input.oneIn(4);
            if (m_hasGroup[group]) {
                CModuleManager_RegisterGroup(group, group == 0 ? "Start" : "Stop");
            }
        }
        CModuleManager_RegisterModule(1, "Module");
        CModuleManager_RegisterBatch(1, "Batch");
        for (const std::uint32_t group : {0u, 1u}) {
            CModuleManager_RegisterPhase(10 + group, "Phase");
            CModuleManager_InsertPhaseIntoBatch(10 + group, group, 1);
        }
        CModuleManager_RegisterCallback(1, "Callback", 100, &callback, NORMAL, 1, nullptr, 0);
        answers.fill(eAF_S_OK);
        names.fill("Application");
        phaseAnswer = eAF_S_OK;
        CApplicationFramework_SetServerPort(0);
    }
    ~Walk() {
        CApplicationFramework_UnInitialize();
        CModuleManager_UnInitialize();
    }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    void step() {
        test::TraceRecorder::reset();
        m_expected.clear();
        m_expectedCalls.clear();
        asked.clear();
        phases.clear();
        switch (m_input.below(10)) {
        case 0:
            m_isInitialized = true;
            m_registered.clear();
            m_count = 0;
            return check("Initialize", eAF_S_OK, CApplicationFramework_Initialize());
        case 1:
            if (m_input.oneIn(2)) {
                return unInitialize();
            }
            return setPort();
        case 2:
        case 3:
        case 4:
            return registerApplication();
        case 5:
        case 6:
            return check("Start", started(), CApplicationFramework_Start());
        case 7:
            return check("Stop", stopped(), CApplicationFramework_Stop());
        case 8:
            return setPort();
        default:
            return changeAnswers();
        }
    }

private:
    void expect(const std::string &function, const std::string &message, std::uint32_t code) {
        m_expected.push_back({"CApplicationFramework_" + function, message, code});
    }

    void unInitialize() {
        m_isInitialized = false;
        m_registered.clear();
        // The event service, which it closes, was never opened here.
        m_expected.push_back(
            {"CEventHandler_UnInitialize", "CEventHandler was previosuly not initialized", eAF_E_NOT_INITIALIZED});
        check("UnInitialize", eAF_S_OK, CApplicationFramework_UnInitialize());
    }

    void registerApplication() {
        const std::uint32_t which = m_input.below(noOfApplications + 1);
        SApplicationDescriptor *application = which < noOfApplications ? &applications[which] : nullptr;
        EAFResult expected = eAF_S_OK;
        if (!m_isInitialized) {
            expected = eAF_E_NOT_INITIALIZED;
            expect("RegisterApplication", "Application is not initialized", expected);
        } else if (application == nullptr) {
            expected = eAF_E_INVALID_ARGUMENT;
            expect("RegisterApplication", "Invalid argument", expected);
        } else {
            m_registered.push_front(which); // the newest is asked first
            ++m_count;
        }
        check("RegisterApplication", expected, CApplicationFramework_RegisterApplication(application));
    }

    /// @return whether it may go on.
    bool isReady(const std::string &function, EAFResult &code) {
        if (!m_isInitialized) {
            code = eAF_E_NOT_INITIALIZED;
            expect(function, "Application is not initialized", code);
        } else if (m_count == 0) {
            code = eAF_E_NO_APPLICATION;
            expect(function, "No applications", code);
        }
        return m_isInitialized && m_count != 0;
    }

    EAFResult groupAnswer(std::uint32_t group) {
        if (!m_hasGroup[group]) {
            return eAF_E_FAILED;
        }
        m_expectedPhases.push_back(10 + group);
        return phaseAnswer >= eAF_E_FAILED ? eAF_E_FAILED : eAF_S_OK;
    }

    EAFResult started() {
        m_expectedPhases.clear();
        EAFResult code = eAF_S_OK;
        if (!isReady("Start", code)) {
            return code;
        }
        bool isAllWell = true;
        for (const std::uint32_t which : m_registered) {
            m_expectedCalls.push_back(which);
            if (answers[which] >= eAF_E_FAILED) {
                isAllWell = false;
                if (names[which] != nullptr) {
                    expect("Start", std::string("Failed to initialize application ") + names[which] + "\n",
                           answers[which]);
                }
            }
        }
        if (!isAllWell) {
            expect("Start", "Could not initialize all applications", eAF_E_FAILED);
            return eAF_E_FAILED;
        }
        code = groupAnswer(0);
        if (code >= eAF_E_FAILED) {
            expect("Start", "One or more application start phases indicates errors", eAF_E_FAILED);
        }
        return code;
    }

    EAFResult stopped() {
        m_expectedPhases.clear();
        EAFResult code = eAF_S_OK;
        if (!isReady("Stop", code)) {
            return code;
        }
        code = groupAnswer(1);
        if (code >= eAF_E_FAILED) {
            expect("Stop", "Application stop failed", eAF_E_FAILED);
        }
        return code;
    }

    void setPort() {
        const auto port = static_cast<std::int32_t>(m_input.oneIn(3) ? 0xFFFE + m_input.below(4) : m_input.word());
        if (m_input.oneIn(4)) {
            std::array<std::int32_t, 9> configuration{};
            configuration[8] = port;
            m_port = port;
            check("FinalInitialization", eAF_S_OK, CApplicationFramework_FinalInitialization(configuration.data()));
            return;
        }
        const bool isTaken = port < 0x10000;
        m_port = isTaken ? port : m_port;
        check("SetServerPort", isTaken ? eAF_S_OK : eAF_E_INVALID_ARGUMENT, CApplicationFramework_SetServerPort(port));
    }

    void changeAnswers() {
        static constexpr EAFResult codes[] = {eAF_S_OK,
                                              eAF_S_OK,
                                              eAF_S_TRUE,
                                              eAF_W_WARNING,
                                              eAF_E_FAILED,
                                              eAF_E_OUT_OF_MEMORY,
                                              static_cast<EAFResult>(0x7FFF),
                                              static_cast<EAFResult>(0xFFFFFFFF)};
        static constexpr const char *someNames[] = {"Application", "", nullptr, "100%s%n"};
        const std::uint32_t which = m_input.below(noOfApplications);
        answers[which] = m_input.any(codes);
        names[which] = m_input.any(someNames);
        phaseAnswer = m_input.any(codes);
    }

    /// The runner's own traces are its own test's.
    void check(const std::string &what, EAFResult expected, EAFResult code) {
        FUZZ_CHECK(expected == code, what + ": " + std::to_string(code) + ", expected " + std::to_string(expected));
        std::vector<Line> lines;
        for (const Line &line : test::TraceRecorder::lines()) {
            if (line.function.rfind("CModuleManager", 0) != 0) {
                lines.push_back(line);
            }
        }
        FUZZ_CHECK(lines == m_expected, what + " traces otherwise");
        FUZZ_CHECK(std::equal(asked.begin(), asked.end(), m_expectedCalls.begin(), m_expectedCalls.end()),
                   what + " asks other applications");
        FUZZ_CHECK(what != "Start" && what != "Stop" ? phases.empty() : phases == m_expectedPhases,
                   what + " runs other phases");
        FUZZ_CHECK(CApplicationFramework_GetServerPort() == m_port, what + " changes the port");
    }

    FuzzInput &m_input;
    std::array<bool, 2> m_hasGroup{};
    bool m_isInitialized = false;
    std::uint32_t m_count = 0;
    std::deque<std::uint32_t> m_registered;
    std::int32_t m_port = 0;
    std::vector<Line> m_expected;
    std::vector<std::size_t> m_expectedCalls;
    std::vector<std::uint32_t> m_expectedPhases;
};

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    CModuleManager_Initialize();
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::walkToTheEnd<Walk>(data, size);
    return 0;
}
