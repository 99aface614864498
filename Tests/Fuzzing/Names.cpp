// The names that the library makes: of a queue, for any port, suffix and buffer; of a code; of a priority.
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "AfResult.h"
#include "CApplicationFramework.h"
#include "CFrameworkUtils.h"
#include "CModuleManager_c.h"
#include "FuzzInput.h"
#include "GuardedBuffer.h"
#include "Harness.h"
#include "TraceRecorder.h"

namespace {

using fuzz::FuzzInput;
using Lines = std::vector<test::Line>;

std::string user;
std::int32_t port; ///< As it was last set.

std::int32_t anyPort(FuzzInput &input) {
    switch (input.below(4)) {
    case 0:
        return std::numeric_limits<std::int32_t>::min();
    case 1:
        return static_cast<std::int32_t>(input.below(65536));
    default:
        return static_cast<std::int32_t>(input.word());
    }
}

/// Sizes about the length first: that is where a text is cut or not.
std::int32_t anySize(FuzzInput &input, std::size_t length) {
    switch (input.below(4)) {
    case 0:
        return static_cast<std::int32_t>(input.below(700));
    case 1:
        return static_cast<std::int32_t>(input.word() | 0x80000000u);
    default:
        return static_cast<std::int32_t>(length + input.below(3));
    }
}

void checkTraces(const Lines &expected, const std::string &name) {
    FUZZ_CHECK(test::TraceRecorder::lines() == expected, name);
    FUZZ_CHECK(test::TraceRecorder::openRecords() == 0, name);
}

void nameAQueue(FuzzInput &input) {
    const std::int32_t given = anyPort(input);
    const bool isRefused = given >= 65536;
    FUZZ_CHECK(CApplicationFramework_SetServerPort(given) == (isRefused ? eAF_E_INVALID_ARGUMENT : eAF_S_OK),
               std::to_string(given));
    port = isRefused ? port : given;
    const std::string bytes = input.text(input.below(400));
    const std::string suffix = bytes.substr(0, bytes.find('\0'));
    const std::string whole = "/" + user + "_" + std::to_string(port) + "_" + suffix;
    const std::int32_t size = anySize(input, whole.size());
    const std::string cut = size > 0 ? whole.substr(0, static_cast<std::size_t>(size) - 1) : "";

    fuzz::GuardedBuffer buffer(size > 0 ? static_cast<std::size_t>(size) : 0);
    test::TraceRecorder::reset();
    const EAFResult result = CFrameworkUtils_GetMQueueName(buffer.data(), size, suffix.c_str());
    FUZZ_CHECK(result == (cut == whole ? eAF_S_OK : eAF_E_BUFFER_TOO_SMALL), whole);
    FUZZ_CHECK(buffer.isGuardWhole(), whole);
    if (size <= 0) {
        checkTraces({}, whole);
        return;
    }
    FUZZ_CHECK(std::memcmp(buffer.data(), cut.c_str(), cut.size() + 1) == 0, whole);
    checkTraces({{"CFrameworkUtils_GetMQueueName", "  MQueueName = " + cut, 0x800}}, whole);

    test::TraceRecorder::reset();
    FUZZ_CHECK(CFrameworkUtils_GetMQueueName(nullptr, size, suffix.c_str()) == eAF_E_INVALID_ARGUMENT, "no buffer");
    FUZZ_CHECK(CFrameworkUtils_GetMQueueName(buffer.data(), size, nullptr) == eAF_E_INVALID_ARGUMENT, "no suffix");
    FUZZ_CHECK(std::memcmp(buffer.data(), cut.c_str(), cut.size() + 1) == 0, "written to");
    checkTraces({}, "no buffer or suffix");
}

void nameACode(FuzzInput &input) {
#define NAMED_CODE(name, value, meaning) {value, #name},
    static const std::map<std::uint32_t, std::string> names{AF_RESULT_TABLE(NAMED_CODE)};
#undef NAMED_CODE
    // Near a code more often than not.
    constexpr std::array<std::uint32_t, 5> groups{0, 0x100, 0x800, 0x1000, 0x8000};
    const std::uint32_t group = input.below(groups.size() + 1);
    const std::uint32_t code = group < groups.size() ? groups.at(group) + input.below(0x60) : input.word();
    const auto found = names.find(code);
    const std::string name = AfResult::toString(static_cast<EAFResult>(code));
    FUZZ_CHECK(name == (found != names.end() ? found->second : "Unknown"), std::to_string(code) + " " + name);
}

void nameAPriority(FuzzInput &input) {
    static const std::vector<std::string> names{"HIGHEST", "HIGH",  "HIGHER_THAN_NORMAL", "NORMAL", "LOWER_THAN_NORMAL",
                                                "LOW",     "LOWEST"};
    const std::uint32_t priority = input.oneIn(4) ? input.word() : input.below(10);
    const std::string expected = priority < names.size() ? names[priority] : "UNKNOWN";
    FUZZ_CHECK(getECallbackPriorityName(static_cast<ECallbackPriority>(priority)) == expected, expected);
    const bool isRefused = priority >= names.size() && priority <= 0x7FFFFFFF;
    const char *name = "left over";
    FUZZ_CHECK(CModuleManager_GetPriorityName(static_cast<std::int32_t>(priority), &name) ==
                   (isRefused ? eAF_E_FAILED : eAF_S_OK),
               expected);
    FUZZ_CHECK(isRefused ? name == nullptr : name == expected, expected);
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    const passwd *entry = getpwuid(getuid());
    user = entry != nullptr ? entry->pw_name : "UNKNOWN";
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    port = 0;
    CApplicationFramework_SetServerPort(port);
    FuzzInput input(data, size);
    for (int names = 0; names < 40 && !input.isAtEnd(); ++names) {
        switch (input.below(4)) {
        case 0:
            nameACode(input);
            break;
        case 1:
            nameAPriority(input);
            break;
        default:
            nameAQueue(input);
            break;
        }
    }
    return 0;
}
