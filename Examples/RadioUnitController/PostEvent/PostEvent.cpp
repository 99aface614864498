/// @file
/// Posts an event to one listener of a controller that runs in another process of the same user. The queue's
/// name and the message are all that the two share.
#include <CApplicationFramework.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <string>

#include "Configuration.h"
#include "Host/ExitCode.h"
#include "Support/DataWord.h"
#include "Support/QueueMessage.h"

namespace {

struct Options {
    int32_t port = 7400;
    std::string listener;
    std::string event;
    std::optional<uint32_t> number;
    bool urgent = false;
};

std::string postableEvents() {
    std::string names;
    for (const SNamedId &event : radio::events()) {
        if (radio::dataOf(event.id) != radio::EventData::Memory) {
            names += names.empty() ? "" : ", ";
            names += event.name;
        }
    }
    return names;
}

/// An event whose data is memory would hand the controller an address of this process, so those stay out.
uint32_t checkedEventId(const Options &options) {
    const auto refuse = [&options](const std::string &why) {
        return CLI::ValidationError("--event " + options.event, why);
    };
    const std::optional<uint32_t> id = radio::findId(radio::events(), options.event);
    if (!id) {
        throw refuse("there is no such event; there are: " + postableEvents());
    }
    switch (radio::dataOf(*id)) {
    case radio::EventData::Memory:
        throw refuse("it carries memory of the controller's own process; post one of: " + postableEvents());
    case radio::EventData::Number:
        if (!options.number) {
            throw refuse("it carries a number; give it with --data");
        }
        break;
    case radio::EventData::None:
        if (options.number) {
            throw refuse("it carries no data; leave --data out");
        }
        break;
    }
    return *id;
}

int post(const Options &options, uint32_t eventId) {
    CApplicationFramework_SetServerPort(options.port);
    const SEventDataMessage message{eventId, radio::toDataWord(options.number.value_or(0)), 0};
    const std::string queue = radio::queueName(options.listener);
    const std::string fault = radio::postMessage(
        queue, message, options.urgent ? radio::urgentPriority : radio::normalPriority, radio::WhenFull::Fail);
    if (!fault.empty()) {
        std::cerr << "PostEvent: " << fault << '\n';
        return radio::ExitFailure;
    }
    std::printf("  PostEvent: %s is on queue %s\n", options.event.c_str(), queue.c_str());
    return radio::ExitSuccess;
}

} // namespace

int main(int argc, char **argv) {
    try {
        Options options;
        CLI::App app("Posts an event to a listener of a radio unit's controller.");
        app.add_option("--port", options.port, "the controller's server port")
            ->check(CLI::Range(0, 65535))
            ->capture_default_str();
        app.add_option("--listener", options.listener, "the listener's name, for example AlarmCollector")->required();
        app.add_option("--event", options.event, "the event's name")->required();
        app.add_option("--data", options.number, "the number that comes with it");
        app.add_flag("--urgent", options.urgent, "overtake what is not urgent");
        app.footer("Events: " + postableEvents());
        uint32_t eventId = 0;
        try {
            app.parse(argc, argv);
            eventId = checkedEventId(options);
        } catch (const CLI::ParseError &error) {
            return app.exit(error) == 0 ? radio::ExitSuccess : radio::ExitUsage;
        }
        return post(options, eventId);
    } catch (const std::exception &error) {
        std::cerr << "PostEvent: " << error.what() << '\n';
        return radio::ExitFailure;
    }
}
