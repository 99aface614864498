#include "Scenario.h"

#include <mqueue.h>
#include <unistd.h>

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <set>
#include <sstream>
#include <utility>

#include "CFileStorage.h"
#include "CSqliteStorage.h"
#include "EventQueues.h"
#include "FileStore.h"
#include "ScenarioParts.h"
#include "SqliteStore.h"
#include "ThreadCount.h"

namespace test {
namespace {

namespace fs = std::filesystem;

EAFResult setNoFile(unsigned long /*locationId*/, const char * /*file*/) {
    return eAF_S_OK;
}

EAFResult countAll(unsigned long /*locationId*/, SStorageStatistics *statistics) {
    statistics->noOfValuesRetrieved = Scenario::Parts::noOfStored;
    return eAF_S_OK;
}

class Silent : public storage::Report {
public:
    void add(storage::Severity /*severity*/, const std::string & /*text*/) override {}
};

EAFResult readWith(storage::VariableStore &store, storage::StoredValues &values) {
    Silent report;
    // Written as well: what a host left unfinished is finished first, as the next host does it.
    const EAFResult opened = store.open(storage::Access::readWrite, report);
    return opened >= eAF_E_FAILED ? opened : store.read(values, report);
}

EAFResult readNothing(const std::string & /*file*/, storage::StoredValues & /*values*/) {
    return eAF_S_OK;
}

EAFResult readSqlite(const std::string &file, storage::StoredValues &values) {
    storage::SqliteStore store(file, Scenario::Parts::locationId);
    return readWith(store, values);
}

EAFResult readFile(const std::string &file, storage::StoredValues &values) {
    storage::FileStore store(file);
    return readWith(store, values);
}

/// @return the generation of all values, "none" where there are none yet, or what they are.
std::string describe(const storage::StoredValues &values) {
    std::ostringstream out;
    std::set<int> generations;
    for (const storage::StoredValue &value : values) {
        const int generation = !value.content.empty() ? value.content[0] : -1;
        const bool isWhole = std::all_of(value.content.begin(), value.content.end(),
                                         [&](unsigned char byte) { return byte == generation || byte == 0; });
        generations.insert(isWhole ? generation : -1);
        out << value.path << "=" << generation << (isWhole ? " " : "(torn) ");
    }
    if (values.empty()) {
        return "none";
    }
    return generations.size() == 1 && *generations.begin() >= 0 && values.size() == Scenario::Parts::noOfStored
               ? std::to_string(*generations.begin())
               : "mixed: " + out.str();
}

EAFResult closeMemory() {
    forgetMemory();
    return eAF_S_OK;
}

/// As much of its queue's name as a task keeps.
constexpr std::size_t taskNameSize = sizeof CEventTask::queueName - 1;

const std::size_t threadsAtBegin = threadCount(); // an emulator has some of its own

/// A queue keeps its name where the user's could not be looked up.
std::vector<std::string> possibleNames(const std::string &suffix) {
    return {queueName(suffix), "/UNKNOWN_" + std::to_string(CApplicationFramework_GetServerPort()) + "_" + suffix};
}

long messagesOf(const std::string &suffix) {
    long messages = -1;
    for (const std::string &name : possibleNames(suffix)) {
        messages = std::max(messages, messagesIn(name));
    }
    return messages;
}

/// The library leaves the listeners' queues open when it is uninitialized: they are the host's from then on.
void closeQueues(const std::string &name) {
    std::vector<int> descriptors;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        if (fs::read_symlink(entry.path(), ignored).string().rfind(name, 0) == 0) {
            descriptors.push_back(std::stoi(entry.path().filename().string()));
        }
    }
    for (const int descriptor : descriptors) {
        mq_close(descriptor);
    }
}

} // namespace

bool CallLog::isExactly(std::initializer_list<std::uint32_t> expected) const {
    return count == expected.size() && std::equal(expected.begin(), expected.end(), entries.begin());
}

long ScenarioListener::waiting() const {
    return messagesOf(name);
}

// Steps

Step &Step::needs(std::vector<std::uint32_t> codes) {
    memory = Memory::needed;
    withoutMemory = std::move(codes);
    return *this;
}

Step &Step::ignores(std::vector<std::uint32_t> codes) {
    memory = Memory::ignored;
    withoutMemory = std::move(codes);
    return *this;
}

Step &Step::answers(std::uint32_t code) {
    expected = code;
    return *this;
}

Step &Step::leaves() {
    leavesSomething = true;
    return *this;
}

Step &Step::leavesOnly(std::function<bool(bool isOutOfMemory)> what) {
    isLeftAsDescribed = std::move(what);
    return leaves();
}

Step &Step::loses() {
    losesWhatTheListRefused = true;
    return *this;
}

Step &Step::undoneBy(std::function<void()> what) {
    undo = std::move(what);
    return *this;
}

Step &Step::after(std::function<bool()> what) {
    isReady = std::move(what);
    return *this;
}

Step &Step::settles(std::function<bool()> what) {
    settle = std::move(what);
    return *this;
}

Step &Step::settlesLaterAfter(const char *call) {
    unsettledBy = call;
    return *this;
}

Step &Step::usesTheStore() {
    isOfTheStore = true;
    return *this;
}

Step &Step::storesWhenItSaysSo() {
    stores = true;
    return *this;
}

Step &Step::isUnansweredWhen(std::function<bool()> what) {
    hadNoEffect = std::move(what);
    return *this;
}

Step &Step::onCall(const char *call, std::vector<std::uint32_t> codes, const char *trace) {
    onFailingCall.push_back({call, std::move(codes), trace});
    return *this;
}

// Where variables are kept

const Backend &memoryBackend() {
    static const Backend backend{"Memory",      {"a table's SetFile", "a table's end", "a table's GetStatistics"},
                                 tableInMemory, setNoFile,
                                 closeMemory,   countAll,
                                 readNothing,   false,
                                 false};
    return backend;
}

const Backend &sqliteBackend() {
    static const Backend backend{"Sqlite",
                                 {"CSqliteStorage_SetFile, CSqliteStorage_GetProvider", "CSqliteStorage_UnInitialize",
                                  "CSqliteStorage_GetStatistics"},
                                 CSqliteStorage_GetProvider,
                                 CSqliteStorage_SetFile,
                                 CSqliteStorage_UnInitialize,
                                 CSqliteStorage_GetStatistics,
                                 readSqlite,
                                 true,
                                 true};
    return backend;
}

const Backend &fileBackend() {
    static const Backend backend{
        "File",
        {"CFileStorage_SetFile, CFileStorage_GetProvider", "CFileStorage_UnInitialize", "CFileStorage_GetStatistics"},
        CFileStorage_GetProvider,
        CFileStorage_SetFile,
        CFileStorage_UnInitialize,
        CFileStorage_GetStatistics,
        readFile,
        true,
        false};
    return backend;
}

// The scenario

Scenario::Scenario(const Backend &backend, std::string folder)
    : m_backend(backend), m_folder(std::move(folder)), m_store(m_folder + "/store"), m_link(m_folder + "/link"),
      m_name(fs::proximate(m_link).string()), m_parts(new Parts) {
    useOwnServerPort();
    addFramework();
    addModules();
    addModuleClasses();
    addEvents();
    addTask();
    addCache();
    addVariables();
    addObjectsAndRegions();
    addDatabase();
    addStorage();
    addStores();
    addStorageClasses();
    addBroker();
    addEnd();
}

Scenario::~Scenario() {
    tearDown();
    delete m_parts;
}

Step &Scenario::add(const char *operation, std::function<std::uint32_t()> run) {
    Step step;
    step.operation = operation;
    step.run = std::move(run);
    m_steps.push_back(std::move(step));
    return m_steps.back();
}

std::string Scenario::state() {
    Parts &p = *m_parts;
    std::ostringstream out;
    out << "port " << CApplicationFramework_GetServerPort() << "\n";
    out << "modules " << CModuleManager_GetNumberOfRegisteredModules() << ":";
    for (const std::uint32_t id : {5u, 6u, 21u, 22u, 23u}) {
        std::uint32_t moduleState = 0;
        if (CModuleManager_QueryModuleState(id, &moduleState) == eAF_S_OK) {
            out << " " << id << "=" << moduleState;
        }
    }
    for (const std::uint32_t id : {13u, 16u}) {
        const char *name = nullptr;
        CModuleManager_GetPhaseName(id, &name);
        out << " phase " << (name != nullptr ? name : "-");
    }
    out << "\nreset " << CModuleManager_IsColdReset() << "\nevents";
    SEventHandlerStatistics statistics{};
    out << " " << CEventHandler_GetStatistics(&statistics);
    for (const std::uint32_t word :
         {statistics.noOfRegisteredEvents, statistics.maxNoOfEvents, statistics.noOfListeners,
          statistics.maxNoOfListeners, statistics.noOfErrorResponses, statistics.noOfPumpedEvents}) {
        out << " " << word;
    }
    for (const std::uint32_t id : {2u, 3u, 48u}) {
        const char *name = nullptr;
        CEventHandler_GetEventName(id, &name);
        out << " " << (name != nullptr ? name : "-");
    }
    for (const ScenarioListener *listener : {&p.greedy, &p.unfiltered}) {
        out << " " << listener->name << " " << listener->handle << " " << listener->noOfHeard << " "
            << listener->waiting();
    }
    out << "\nobjects";
    for (CStorageObject *object : {&p.top, &p.nested, &p.parent, &p.child}) {
        out << " " << object->name << ":" << CStorageObject_GetNoOfVariables(object);
        for (const char *name : {"Number0", "Number1", "Blob", "Text", "Added", "Array", "Child"}) {
            CVariable *variable = nullptr;
            out << CStorageObject_GetVariableByName(object, name, &variable);
        }
    }
    for (CStorageRegion *region : {&p.region, &p.alone, &p.described}) {
        out << " " << region->name << ":" << CStorageRegion_GetNoOfObjects(region);
    }
    if (p.isDatabaseThere) {
        out << "\ndatabase " << CDatabase_GetNoOfRegions(&p.database);
    }
    out << "\nvalues " << p.generation();
    for (const char *path : {"Cfg/Radio/Number0", "Cfg/Radio/Text", "Cfg/Radio/Nested object with its own name/Number1",
                             "Other/Path/Unknown"}) {
        CVariable *variable = nullptr;
        out << " " << CStorageManager_GetVariableByPath(path, &variable);
    }
    for (const char *name : {"Number0", "Text", "Array"}) {
        CVariable *variable = nullptr;
        out << " " << CStorageManager_GetVariableByName(name, &variable);
    }
    if (p.location) {
        out << " location " << CDatabase_GetNoOfRegions(p.location->database) << " "
            << int{p.location->providerAssigned};
    }
    if (p.provider) {
        out << " provider " << p.provider->locations.size();
    }
    out << "\ninterfaces";
    for (const std::string &name : {std::string("short"), longName}) {
        IInterface *found = nullptr;
        out << " " << InterfaceBroker::getInstance().getInterface(name, &found) << (found != nullptr);
    }
    out << "\n";
    return out.str();
}

std::string Scenario::stored() {
    if (!m_backend.keepsFiles) {
        return "";
    }
    // A copy, with whatever a host that ends now would leave beside the store.
    const std::string copies = m_folder + "/copies";
    fs::remove_all(copies);
    fs::create_directory(copies);
    for (const auto &entry : fs::directory_iterator(m_folder)) {
        const std::string name = entry.path().filename().string();
        if (!entry.is_symlink() && entry.is_regular_file() && name.find(".lock") == std::string::npos) {
            fs::copy_file(entry.path(), fs::path(copies) / name);
        }
    }
    storage::StoredValues values;
    const EAFResult result = m_backend.read(copies + "/store", values);
    fs::remove_all(copies);
    if (result >= eAF_E_FAILED) {
        return "it can not be read: " + AfResult::toString(result);
    }
    return describe(values);
}

std::string Scenario::inVariables() const {
    return m_backend.keepsFiles ? std::to_string(m_parts->generation()) : "";
}

std::string Scenario::notAsAnswered(const Step &step, std::uint32_t code) {
    if (!step.stores || code != eAF_S_OK) {
        return "";
    }
    const std::string held = stored();
    return held == inVariables() ? ""
                                 : "answered that it has stored " + inVariables() + ", and the store holds " + held;
}

std::string Scenario::tearDown() {
    Parts &p = *m_parts;
    if (p.isTaskCreated) {
        p.operations->Destroy(p.operations);
        p.isTaskCreated = false;
    }
    if (CEventHandler_GetNumberOfRegisteredEvents() != eAF_E_NOT_INITIALIZED) {
        for (ScenarioListener *listener : {&p.greedy, &p.unfiltered}) {
            while (listener->waiting() > 0) {
                errno = 0;
                CEventHandler_PumpEvent(listener->handle);
            }
        }
        CEventHandler_UnInitialize();
    }
    CApplicationFramework_UnInitialize();
    p.movedTo.reset();
    p.registrator.reset();
    p.deferred.reset();
    p.module.reset();
    CModuleManager_UnInitialize();
    CModuleManager_Initialize();
    p.provider.reset();
    p.location.reset();
    CStorageManager_Uninitialize();
    if (p.isDatabaseThere) {
        CDatabase_Destruct(&p.database);
        p.isDatabaseThere = false;
    }
    for (CStorageRegion *region : {&p.region, &p.alone, &p.described}) {
        CStorageRegion_Destruct(region);
    }
    for (CStorageObject *object : {&p.top, &p.nested, &p.parent, &p.child}) {
        CStorageObject_Destruct(object);
    }
    delete[] std::exchange(p.wrapper, nullptr);
    m_backend.close();
    CEventCache_Destruct(&p.cache);
    if (p.own.accessType == ByValue && p.own.content != nullptr) {
        CVariable_Destruct(&p.own);
    }
    InterfaceBroker::getInstance().clear();
    p.anInterface.reset();
    std::string left = workersAre(0) ? "" : "a worker that nothing wakes ";
    for (const char *suffix : {"EHNP", "Task"}) {
        for (const std::string &name : possibleNames(suffix)) {
            left += queueExists(name.substr(0, taskNameSize)) ? name + " " : "";
            mq_unlink(name.substr(0, taskNameSize).c_str());
        }
    }
    for (const ScenarioListener *listener : {&p.greedy, &p.unfiltered}) {
        for (const std::string &name : possibleNames(listener->name)) {
            closeQueues(name);
            mq_unlink(name.c_str());
        }
    }
    if (m_backend.keepsFiles) {
        left += fs::is_symlink(m_link) ? "" : "no link where the host's was ";
        for (const auto &entry : fs::directory_iterator(m_folder)) {
            const std::string name = entry.path().filename().string();
            left += name.rfind("link", 0) == 0 && name != "link" ? name + " beside the link " : "";
        }
    }
    // Each life begins with records and stores that nobody has touched.
    m_parts->~Parts();
    new (m_parts) Parts;
    if (!m_folder.empty()) {
        for (const auto &entry : fs::directory_iterator(m_folder)) {
            fs::remove_all(entry.path());
        }
    }
    return left;
}

bool soon(const std::function<bool()> &condition) {
    constexpr int mostTurns = 100;
    for (int turn = 0; turn < mostTurns; ++turn) {
        if (condition()) {
            return true;
        }
        sched_yield();
    }
    return eventually(condition);
}

bool workersAre(std::size_t number) {
    return soon([=] { return threadCount() == threadsAtBegin + number; });
}

} // namespace test
