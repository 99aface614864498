// Operations on the interface broker, chosen by the fuzzer, against a map.
#include "InterfaceBroker.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "Harness.h"
#include "TraceRecorder.h"

namespace {

using fuzz::FuzzInput;
using test::Line;

class Part : public IInterface {
public:
    using IInterface::IInterface;
};

std::string addressText(const void *address) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%p", address);
    return text.data();
}

/// Names that collide, differ in case, are another's beginning, are empty, or are any bytes.
std::string nameFrom(FuzzInput &input) {
    static const std::vector<std::string> usual{"Gain", "gain", "GainControl", "", "a", std::string("a\0b", 3)};
    const std::uint32_t which = input.below(8);
    return which < usual.size() ? usual[which] : input.text(input.below(12));
}

class Walk {
public:
    explicit Walk(FuzzInput &input) : m_input(input) {
        m_broker.clear();
        for (int i = 0; i < 4; ++i) {
            m_parts.push_back(std::make_unique<Part>(nameFrom(m_input)));
        }
    }
    ~Walk() { m_broker.clear(); }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    void step() {
        test::TraceRecorder::reset();
        m_expected.clear();
        switch (m_input.below(8)) {
        case 0:
        case 1:
        case 2: {
            const std::string name = nameFrom(m_input);
            Part *part = m_input.oneIn(8) ? nullptr : anyPart();
            check(registered(name, part), m_broker.registerInterface(name, part));
            break;
        }
        case 3: {
            Part *part = anyPart();
            check(registered(part->getName(), part), m_broker.registerInterface(part));
            break;
        }
        case 4:
        case 5:
            unregister();
            break;
        case 6:
            get();
            break;
        default:
            if (m_input.oneIn(4)) {
                m_model.clear();
                m_broker.clear();
            }
            check(eAF_S_OK, eAF_S_OK);
            break;
        }
        checkAll();
    }

private:
    Part *anyPart() { return m_parts[m_input.below(4)].get(); }

    void expect(const std::string &message, std::uint32_t code) { m_expected.push_back({m_function, message, code}); }

    EAFResult registered(const std::string &name, IInterface *part) {
        m_function = "registerInterface";
        const std::string shown = name.c_str(); // as far as a trace shows it
        expect("  Register interface " + shown, 0x800);
        const auto present = m_model.find(name);
        if (present != m_model.end()) {
            expect("Interface " + shown + " is already registered (pInterface " + addressText(present->second) + ")",
                   0x8000);
            return eAF_W_ALREADY_REGISTERED;
        }
        if (part == nullptr) {
            expect("registerInterface called with interface == NULL", 0x8006);
            return eAF_E_INVALID_ARGUMENT;
        }
        expect("  Register interface " + shown + " ( pInterface " + addressText(part) + " )", 0x800);
        m_model[name] = part;
        return eAF_S_OK;
    }

    void unregister() {
        m_function = "unregisterInterface";
        const std::string name = nameFrom(m_input);
        const bool wantsIt = !m_input.oneIn(4);
        Part leftOver("left over");
        IInterface *found = &leftOver;
        IInterface *expected = nullptr;
        EAFResult code = eAF_E_FAILED;
        const auto present = m_model.find(name);
        if (present != m_model.end()) {
            expected = present->second;
            code = eAF_S_OK;
            expect(std::string("  Unregister interface ") + name.c_str() + " ( pInterface " + addressText(expected) +
                       " )",
                   0x800);
            m_model.erase(present);
        } else {
            expect(std::string("InterfaceBroker couldn't find [") + name.c_str() + "] to unregister", 0x8000);
        }
        check(code, m_broker.unregisterInterface(name, wantsIt ? &found : nullptr));
        FUZZ_CHECK(found == (wantsIt ? expected : &leftOver), name);
    }

    void get() {
        m_function = "getInterface";
        const std::string name = nameFrom(m_input);
        if (m_input.oneIn(8)) {
            check(eAF_E_INVALID_ARGUMENT, m_broker.getInterface(name, nullptr));
            return;
        }
        Part leftOver("left over");
        IInterface *found = &leftOver;
        const auto present = m_model.find(name);
        const bool isThere = present != m_model.end();
        if (!isThere) {
            expect(std::string("InterfaceBroker couldn't find [") + name.c_str() + "]", 0x8000);
        }
        check(isThere ? eAF_S_OK : eAF_E_FAILED, m_broker.getInterface(name, &found));
        FUZZ_CHECK(found == (isThere ? present->second : nullptr), name);
    }

    void check(EAFResult expected, EAFResult code) {
        FUZZ_CHECK(expected == code, m_function + ": " + std::to_string(code));
        FUZZ_CHECK(test::TraceRecorder::lines() == m_expected, m_function + " traces otherwise");
    }

    /// Not one entry more, not one less.
    void checkAll() {
        for (const auto &[name, part] : m_model) {
            IInterface *found = nullptr;
            FUZZ_CHECK(m_broker.getInterface(name, &found) == eAF_S_OK && found == part, name);
        }
        for (const auto &part : m_parts) {
            IInterface *found = nullptr;
            const bool isThere = m_broker.getInterface(part->getName(), &found) == eAF_S_OK;
            FUZZ_CHECK(isThere == (m_model.count(part->getName()) == 1), part->getName());
        }
    }

    FuzzInput &m_input;
    InterfaceBroker &m_broker = InterfaceBroker::getInstance();
    std::vector<std::unique_ptr<Part>> m_parts;
    std::map<std::string, IInterface *> m_model;
    std::string m_function;
    std::vector<Line> m_expected;
};

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::walkToTheEnd<Walk>(data, size);
    return 0;
}
