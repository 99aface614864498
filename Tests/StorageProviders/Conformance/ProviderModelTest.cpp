// Random stores, retrieves, changes and firmwares against a map; the seed is printed.
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

    std::mt19937 random{GetParam()};
};

struct Registered {
    std::string path;
    Kind kind;
    CVariable *variable;
    Bytes defaults;
};

TEST_P(ProviderModel, AgreesAfterEveryStep) {
    std::printf("seed %u\n", GetParam());
    TraceRecorder::reset(0, 0);
    std::map<std::string, Kept> model;
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
                std::uint32_t expected = 0;
                for (const Registered &each : variables) {
                    const auto found = model.find(each.path);
                    if (found == model.end() || !(found->second.kind == each.kind) ||
                        found->second.content != test::contentOf(each.variable)) {
                        ++expected;
                    }
                    model[each.path] = {each.kind, test::contentOf(each.variable)};
                }
                ASSERT_EQ(eAF_S_OK, firmware.store(*provider));
                ASSERT_EQ(expected, statistics().noOfValuesWritten);
            } else {
                if (what == 9) {
                    restart();
                }
                ASSERT_EQ(eAF_S_OK, firmware.retrieve(*provider));
                for (const Registered &each : variables) {
                    const auto found = model.find(each.path);
                    const bool isLoaded = found != model.end() && found->second.kind == each.kind;
                    ASSERT_EQ(isLoaded ? found->second.content : each.defaults, test::contentOf(each.variable))
                        << each.path;
                }
            }
        }
        restart();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ProviderModel, testing::Range(1U, 6U));

} // namespace
