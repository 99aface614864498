/// @file
/// What the module manager's tests share: callbacks that keep a journal, and an empty registry for each test.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "CModuleManager_c.h"
#include "TraceRecorder.h"

namespace test {

using Lines = std::vector<Line>;

/// A call that reached a callback.
struct Call {
    std::string callback;
    std::uint32_t phaseId;
    std::uint32_t priority;
};

inline bool operator==(const Call &a, const Call &b) {
    return a.callback == b.callback && a.phaseId == b.phaseId && a.priority == b.priority;
}

inline std::ostream &operator<<(std::ostream &out, const Call &call) {
    return out << call.callback << "(phase " << call.phaseId << ", priority " << call.priority << ")";
}

using Calls = std::vector<Call>;

/// A callback record that notes its calls and answers as it is told.
class Callback {
public:
    Callback(std::string ownName, Calls &ownJournal) : name(std::move(ownName)), journal(ownJournal) {}
    Callback(const Callback &) = delete;
    Callback &operator=(const Callback &) = delete;

    Callback &answers(std::uint32_t code) {
        answer = static_cast<EAFResult>(code);
        return *this;
    }

    /// @param step  taken on each call, before the answer.
    Callback &does(std::function<void()> step) {
        action = std::move(step);
        return *this;
    }

    SModuleCallback record{this, &onCall};

private:
    static EAFResult onCall(void *context, std::uint32_t phaseId, ECallbackPriority priority) {
        Callback &self = *static_cast<Callback *>(context);
        self.journal.push_back({self.name, phaseId, priority});
        if (self.action) {
            self.action();
        }
        return self.answer;
    }

    std::string name;
    Calls &journal;
    EAFResult answer = eAF_S_OK;
    std::function<void()> action;
};

/// An empty registry without a reset provider, and no trace yet.
class ModuleManagerFixture : public testing::Test {
protected:
    ModuleManagerFixture() {
        forgetAll();
        TraceRecorder::reset();
    }

    ~ModuleManagerFixture() override {
        EXPECT_EQ(0u, TraceRecorder::openRecords());
        forgetAll();
    }

    static void forgetAll() {
        CModuleManager_UnInitialize();
        CModuleManager_Initialize();
    }

    /// Registers a module and makes a callback of the same name, which is not registered yet.
    Callback &addModule(std::uint32_t id, const char *name) {
        EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterModule(id, name));
        return callbacks.emplace_back(name, calls);
    }

    static void addPhase(std::uint32_t id, const char *name, std::uint32_t groupId, std::uint32_t batchId) {
        EXPECT_EQ(eAF_S_OK, CModuleManager_RegisterPhase(id, name));
        EXPECT_EQ(eAF_S_OK, CModuleManager_InsertPhaseIntoBatch(id, groupId, batchId));
    }

    /// Registers a callback, named "cb", for every phase of a batch.
    static void subscribe(std::uint32_t moduleId, Callback &callback, std::uint32_t priority = NORMAL,
                          std::uint32_t channel = ALL_RADIO_CHANNELS, std::uint32_t batchId = 1) {
        EXPECT_EQ(eAF_S_OK,
                  CModuleManager_RegisterCallback(moduleId, "cb", channel, &callback.record,
                                                  static_cast<ECallbackPriority>(priority), batchId, nullptr, 0));
    }

    static std::uint32_t stateOf(std::uint32_t moduleId) {
        std::uint32_t state = 0;
        EXPECT_EQ(eAF_S_OK, CModuleManager_QueryModuleState(moduleId, &state));
        return state;
    }

    /// The callbacks called since the last time this was asked, by name.
    std::vector<std::string> namesOfCalls() {
        std::vector<std::string> names;
        for (const Call &call : std::exchange(calls, {})) {
            names.push_back(call.callback);
        }
        return names;
    }

    Calls calls;
    std::deque<Callback> callbacks;
};

} // namespace test
