#include <cstdint>
#include <deque>
#include <string>

#include "InterfaceBroker.h"
#include "Measure.h"

namespace instructions {

namespace {

constexpr std::uint32_t noOfInterfaces = 100;

class Interface : public IInterface {
public:
    using IInterface::IInterface;
};

template <class Operation>
void measureHundred(const char *path, Operation operation) {
    measure(path, 100, [&operation] {
        for (int i = 0; i < 100; ++i) {
            operation();
        }
    });
}

} // namespace

void brokerPaths() {
    InterfaceBroker &broker = InterfaceBroker::getInstance();
    std::deque<Interface> interfaces;
    for (std::uint32_t i = 0; i < noOfInterfaces; ++i) {
        require("registering", broker.registerInterface(&interfaces.emplace_back(numbered("IAntennaDriver", i))));
    }
    IInterface *found = nullptr;
    const std::string present = numbered("IAntennaDriver", 42);
    const std::string absent = numbered("IAntennaDriver", noOfInterfaces);
    measureHundred("hit among 100", [&] { require("looking up", broker.getInterface(present, &found)); });
    measureHundred("miss among 100",
                   [&] { require("looking up", broker.getInterface(absent, &found) == eAF_E_FAILED); });
    measureHundred("register and unregister beside 100", [&] {
        require("registering", broker.registerInterface(absent, &interfaces.front()));
        require("unregistering", broker.unregisterInterface(absent, &found));
    });
    measureHundred("take the broker", [] { InterfaceBroker::getInstance(); });
    broker.clear();
}

} // namespace instructions
