// zaf-store: looks into the stores of the storage providers and mends them.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Arguments.h"
#include "Commands.h"
#include "Fault.h"
#include "Output.h"

namespace {

const char *const footer =
    "Exit codes: 0 done, 1 differences or faults were found, 2 usage, 3 no such store, path or location, 4 the store "
    "is\n"
    "in use, 5 no store or a damaged one, 6 a value or document that does not fit, 7 the store, or standard output,\n"
    "could not be written.";

// Made when it is asked for: what is made before main and finds no memory ends the tool without a word.
std::map<std::string, Kind> kinds() {
    return {{"sqlite", Kind::sqlite}, {"file", Kind::file}};
}

CLI::App *addCommand(CLI::App &app, const std::string &name, const std::string &does, const std::string &examples) {
    CLI::App *command = app.add_subcommand(name, does);
    command->footer("Examples:\n" + examples);
    return command;
}

void addStore(CLI::App *command, StoreName &store, const std::string &name = "STORE") {
    command->add_option(name, store.file, "the store's file")->required()->check([](const std::string &file) {
        return file.empty() ? "its name is empty" : std::string();
    });
}

void addLocation(CLI::App *command, StoreName &store, const std::string &option = "--location") {
    command->add_option(option, store.location, "the location, where an SQLite file holds several");
}

/// @throws Fault, std::bad_alloc
int runCommand(int argc, char **argv) {
    CLI::App app(
        "Looks into the stores of storage providers and mends them. Everything that only reads may run beside the "
        "host; what writes needs the host to be down.",
        "zaf-store");
    app.require_subcommand(1);
    app.footer(footer);

    StoreName store;
    StoreName other;
    std::string path;
    std::string text;
    std::string file = "-";
    ListOptions listOptions;
    SetOptions setOptions;
    std::optional<Kind> kind;
    std::function<ExitCode()> run;

    CLI::App *command =
        addCommand(app, "list", "shows every value", "  zaf-store list radio.db\n  zaf-store list --json radio.db");
    addStore(command, store);
    addLocation(command, store);
    command->add_flag("--json", listOptions.isJson, "as the document that dump writes");
    command->add_flag("--full", listOptions.isWhole, "long values whole");
    command->callback([&] { run = [&] { return listValues(store, listOptions); }; });

    command = addCommand(app, "get", "shows one value", "  zaf-store get radio.db Cfg/Radio/Gain");
    addStore(command, store);
    command->add_option("PATH", path, "its full path")->required();
    addLocation(command, store);
    command->callback([&] { run = [&] { return getValue(store, path); }; });

    command = addCommand(app, "set", "changes one value, keeping its type and element count",
                         "  zaf-store set radio.db Cfg/Radio/Gain -12\n"
                         "  zaf-store set radio.db Cfg/Radio/Offsets '[1,-2,3]'\n"
                         "  zaf-store set radio.db Cfg/Radio/Serial 'RU 4711' --create STRING --count 16");
    addStore(command, store);
    command->add_option("PATH", path, "its full path")->required();
    command
        ->add_option("VALUE", text,
                     "a number, a text, an array as JSON has it; behind -- where it begins with two dashes")
        ->required();
    command->add_option("--create", setOptions.create, "add the value, of this type, where there is none");
    command->add_option("--count", setOptions.count, "the new value's element count; its length otherwise");
    addLocation(command, store);
    command->callback([&] { run = [&] { return setValue(store, path, text, setOptions); }; });

    command = addCommand(app, "dump", "writes a store as a JSON document", "  zaf-store dump radio.db > radio.json");
    addStore(command, store);
    command->add_option("FILE", file, "where to; - is standard output")->capture_default_str();
    addLocation(command, store);
    command->callback([&] { run = [&] { return dump(store, file); }; });

    command = addCommand(app, "load", "adds or replaces the values of a JSON document, all or none",
                         "  zaf-store load radio.db radio.json\n  zaf-store load new.store radio.json --kind file");
    addStore(command, store);
    command->add_option("FILE", file, "where from; - is standard input")->capture_default_str();
    command->add_option("--kind", kind, "of a store that is not there yet")
        ->transform(CLI::CheckedTransformer(kinds()));
    addLocation(command, store);
    command->callback([&] { run = [&] { return load(store, file, kind); }; });

    command = addCommand(app, "diff", "compares two stores, of either kind",
                         "  zaf-store diff radio.db backup.store    (- is only or differently in the first)");
    addStore(command, store, "FIRST");
    addStore(command, other, "SECOND");
    addLocation(command, store, "--first-location");
    addLocation(command, other, "--second-location");
    command->callback([&] { run = [&] { return diff(store, other); }; });

    command = addCommand(app, "verify", "reads everything and checks it", "  zaf-store verify radio.db && echo whole");
    addStore(command, store);
    addLocation(command, store);
    command->callback([&] { run = [&] { return verify(store); }; });

    command = addCommand(app, "convert", "copies a store into a new one of the other kind",
                         "  zaf-store convert radio.db radio.store --kind file");
    addStore(command, store, "FROM");
    addStore(command, other, "TO");
    command->add_option("--kind", kind, "of the new store")->required()->transform(CLI::CheckedTransformer(kinds()));
    addLocation(command, store);
    addLocation(command, other, "--to-location");
    command->callback([&] { run = [&] { return convert(store, other, *kind); }; });

    std::vector<std::string> arguments = withValueMarked({argv + std::min(argc, 1), argv + argc});
    std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? ExitDone : ExitUsage;
    }
    return run();
}

} // namespace

int main(int argc, char **argv) {
    try {
        holdStandardStreams();
        const int exitCode = runCommand(argc, argv);
        finishOutput();
        return exitCode;
    } catch (const Fault &fault) {
        std::fprintf(stderr, "zaf-store: %s\n", fault.what());
        return fault.exitCode;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "zaf-store: %s\n", error.what());
        return ExitNotWritten;
    }
}
