#include <cstdio>
#include <exception>
#include <iostream>

#include "Host/Controller.h"
#include "Host/Demonstration.h"
#include "Host/ExitCode.h"
#include "Host/Options.h"
#include "Host/SignalWatch.h"
#include "Host/Soak.h"
#include "Support/Timeline.h"

namespace {

int writeFirmware(const std::string &path) {
    const std::string fault = radio::writeFirmwareImage(path, radio::makeFirmwareImage());
    if (!fault.empty()) {
        std::cerr << "RadioUnitController: " << fault << '\n';
        return radio::ExitFailure;
    }
    return radio::ExitSuccess;
}

/// The controller and all that it opened are gone when this returns.
int demonstrate(const radio::Options &options) {
    radio::SignalWatch signals;
    radio::Soak soak;
    radio::Controller controller(options);
    if (options.keepStoring) {
        return soak.run(controller, signals);
    }
    return radio::Demonstration(controller, signals, options).run();
}

} // namespace

int main(int argc, char **argv) {
    try {
        int exitCode = radio::ExitSuccess;
        const std::optional<radio::Options> options = radio::parseOptions(argc, argv, exitCode);
        if (!options) {
            return exitCode;
        }
        if (!options->firmwareToWrite.empty()) {
            return writeFirmware(options->firmwareToWrite);
        }
        // Whoever reads along through a pipe sees each line when it is printed.
        static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, 0));
        radio::timeSinceStart();
        exitCode = demonstrate(*options);
        std::printf("\nGone, with exit code %d\n", exitCode);
        return exitCode;
    } catch (const std::exception &error) {
        std::cerr << "RadioUnitController: " << error.what() << '\n';
        return radio::ExitFailure;
    }
}
