// Random stores, full disks, retrieves, changes and firmwares against a map; the seed is printed.
#include <map>
#include <random>

#include "Conformance.h"

namespace {

using test::Conformance;
using test::Firmware;
using test::setContent;
using test::TraceRecorder;

using Bytes = std::vector<unsigned char>;

struct Kind {
    EVariableType type;
    std::uint32_t noOfElements;
    std::size_t size;
    bool operator==(const Kind &other) const { return type == other.type && noOfElements == other.noOfElements; }
};

const Kind kinds[] = {{TYPE_INT32, 1, 4},  {TYPE_UINT8_ARRAY, 7, 7}, {TYPE_UINT8_ARRAY, 9, 9},
                      {TYPE_DOUBLE, 1, 8}, {TYPE_STRING, 12, 12},    {TYPE_UINT16_ARRAY, 3, 6}};

struct Kept {
    Kind kind;
    Bytes content;
};

struct Registered {
    std::string path;
    Kind kind;
    CVariable *variable;
    Bytes defaults;
};

class ProviderModel : public Conformance, public testing::WithParamInterface<unsigned> {
protected:
    Bytes randomContent(const Kind &kind) {
        Bytes content(kind.size);
        for (unsigned char &byte : content) {
            byte = static_cast<unsigned char>(random());
        }
        return content;
    }
    std::size_t below(std::size_t bound) { return random() % bound; }

    bool isKept(const Registered &registered) const {
        const auto found = model.find(registered.path);
        return found != model.end() && found->second.kind == registered.kind;
    }

    void store(Firmware &firmware, const std::vector<Registered> &variables, bool isDiskFull) {
        std::uint32_t noOfChanges = 0;
        for (const Registered &each : variables) {
            noOfChanges += isKept(each) && model[each.path].content == test::contentOf(each.variable) ? 0 : 1;
        }
        if (isDiskFull) {
            provider->refuseWrites();
        }
        const EAFResult result = firmware.store(*provider);
        if (isDiskFull) {
            provider->allowWrites();
        }
        const bool isStored = !isDiskFull || noOfChanges == 0;
        ASSERT_EQ(isStored, result == eAF_S_OK);
        ASSERT_EQ(isStored ? noOfChanges : 0, statistics().noOfValuesWritten);
        for (const Registered &each : variables) {
            if (isStored) {
                model[each.path] = {each.kind, test::contentOf(each.variable)};
            }
        }
    }

    void retrieve(Firmware &firmware, const std::vector<Registered> &variables) {
        ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
        std::uint32_t noOfLoaded = 0;
        std::uint32_t noOfMissing = 0;
        for (const Registered &each : variables) {
            ASSERT_EQ(isKept(each) ? model[each.path].content : each.defaults, test::contentOf(each.variable))
                << each.path;
            noOfLoaded += isKept(each) ? 1 : 0;
            noOfMissing += model.count(each.path) == 0 ? 1 : 0;
        }
        const auto noOfVariables = static_cast<std::uint32_t>(variables.size());
        const SStorageStatistics counted = statistics();
        ASSERT_EQ(noOfLoaded, counted.noOfValuesRetrieved);
        ASSERT_EQ(noOfMissing, counted.noOfValuesMissing);
        ASSERT_EQ(noOfVariables - noOfLoaded - noOfMissing, counted.noOfValuesMismatched);
        ASSERT_EQ(model.size() - (noOfVariables - noOfMissing), counted.noOfValuesUnknown);
    }

    std::mt19937 random{GetParam()};
    std::map<std::string, Kept> model;
};

TEST_P(ProviderModel, AgreesAfterEveryStep) {
    std::printf("seed %u\n", GetParam());
    TraceRecorder::reset(0, 0);
    for (int start = 0; start < 12; ++start) {
        Firmware firmware;
        CStorageObject *object = firmware.object("O");
        std::vector<Registered> variables;
        for (int i = 0; i < 12; ++i) {
            if (below(3) == 0) {
                continue; // not in this firmware
            }
            const Kind &kind =
                kinds[below(20) == 0 ? below(std::size(kinds)) : static_cast<std::size_t>(i) % std::size(kinds)];
            const std::string name = "V" + std::to_string(i);
            const Bytes defaults = randomContent(kind);
            variables.push_back(
                {"Cfg/O/" + name, kind,
                 firmware.variable(object, name, kind.type, kind.noOfElements, randomContent(kind), &defaults),
                 defaults});
        }
        for (int step = 0; step < 25; ++step) {
            const std::size_t what = below(10);
            if (what < 5 && !variables.empty()) {
                const Registered &changed = variables[below(variables.size())];
                setContent(changed.variable, randomContent(changed.kind));
            } else if (what < 8) {
                store(firmware, variables, below(5) == 0);
            } else {
                if (what == 9) {
                    restart();
                }
                retrieve(firmware, variables);
            }
            if (HasFatalFailure()) {
                return;
            }
        }
        restart();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ProviderModel, testing::Range(1U, 6U));

} // namespace
