#include "Host/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

#include "Configuration.h"
#include "Host/ExitCode.h"

namespace radio {
namespace {

template <typename Table>
std::string namesOf(const Table &table) {
    std::string names;
    for (const auto &entry : table) {
        names += names.empty() ? "" : ", ";
        names += entry.name;
    }
    return names;
}

std::string phasesOf(const SModuleConfiguration &module) {
    std::vector<SNamedId> called;
    std::copy_if(phases().begin(), phases().end(), std::back_inserter(called),
                 [&module](const SNamedId &phase) { return isCalledIn(module, phase.id); });
    return namesOf(called);
}

std::pair<uint32_t, uint32_t> parseFailure(const std::string &text) {
    const auto refuse = [&text](const std::string &why) { return CLI::ValidationError("--fail " + text, why); };
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) {
        throw refuse("write MODULE:PHASE, for example DspLoader:Init");
    }
    const std::string moduleName = text.substr(0, colon);
    const auto module = std::find_if(moduleTable().begin(), moduleTable().end(),
                                     [&](const SModuleConfiguration &row) { return moduleName == row.name; });
    if (module == moduleTable().end()) {
        throw refuse("there is no module \"" + moduleName + "\"; there are: " + namesOf(moduleTable()));
    }
    const std::optional<uint32_t> phase = findId(phases(), text.substr(colon + 1));
    if (!phase || !isCalledIn(*module, *phase)) {
        throw refuse(moduleName + " is not called in a phase \"" + text.substr(colon + 1) +
                     "\"; it is in: " + phasesOf(*module));
    }
    return {module->id, *phase};
}

void parseRestart(const std::string &text, Options &options) {
    const std::size_t colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    const std::string channel = colon == std::string::npos ? "" : text.substr(colon + 1);
    const bool goodChannel =
        channel.size() == 1 && channel[0] >= '0' + FIRST_RADIO_CHANNEL && channel[0] <= '0' + LAST_RADIO_CHANNEL;
    if ((kind != "cold" && kind != "warm") || !goodChannel) {
        throw CLI::ValidationError("--restart " + text, "write cold or warm, a colon and a channel from 1 to 4");
    }
    options.restartCold = kind == "cold";
    options.restartChannel = static_cast<uint32_t>(channel[0] - '0');
}

} // namespace

std::optional<Options> parseOptions(int argc, const char *const *argv, int &exitCode) {
    Options options;
    std::vector<std::string> failures;
    std::string restart = "warm:2";
    CLI::App app("A radio unit's controller: starts, handles events, loses and recovers its DSP, restarts one "
                 "radio channel, stops.");
    app.add_option("--port", options.port, "server port, which keeps the queues of several controllers apart")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_flag("--stay", options.stay, "run on until SIGINT or SIGTERM, showing events as they come");
    app.add_option("--fail", failures, "let a module fail in a phase; may be repeated")->type_name("MODULE:PHASE");
    app.add_flag("--stop-at-first-failure", options.stopAtFirstFailure,
                 "end the run of a group at its first failure (stopping always reaches every module)");
    app.add_option("--restart", restart, "the restart to show")->type_name("cold|warm:CHANNEL")->capture_default_str();
    app.add_option("--frame-format", options.frameFormatPath, "file of the first frame format")->type_name("FILE");
    app.add_option("--firmware", options.firmwarePath, "firmware image of the DSP, made at each start otherwise")
        ->type_name("FILE");
    app.add_option("--write-firmware", options.firmwareToWrite, "write a firmware image and end")->type_name("FILE");
    app.add_option("--reset-record", options.resetRecordPath, "file that carries a system reset to the next start")
        ->type_name("FILE");
    app.add_option("--storage", options.storage, "what keeps the parameters")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, StorageKind>{{"sqlite", StorageKind::Sqlite}, {"file", StorageKind::File}}))
        ->type_name("sqlite|file");
    app.add_option("--store-folder", options.storeFolder,
                   "folder of the parameters, which must exist; a temporary one otherwise")
        ->type_name("DIR");
    app.add_flag("--new-firmware", options.newFirmware, "start as the next release, which knows one parameter more");
    app.add_flag(
        "--keep-storing", options.keepStoring,
        "change and store a block of parameters over and over; a later start says whether it found them whole");
    app.footer("Modules: " + namesOf(moduleTable()) + "\nPhases: " + namesOf(phases()));
    try {
        app.parse(argc, argv);
        std::transform(failures.begin(), failures.end(), std::back_inserter(options.failures), parseFailure);
        parseRestart(restart, options);
    } catch (const CLI::ParseError &error) {
        exitCode = app.exit(error) == 0 ? ExitSuccess : ExitUsage;
        return std::nullopt;
    }
    return options;
}

} // namespace radio
