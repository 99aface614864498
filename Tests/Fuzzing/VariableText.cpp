// A variable of any kind, as text in either form, in buffers of any size: held against texts that are made here.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "CVariable.h"
#include "FuzzInput.h"
#include "GuardedBuffer.h"
#include "Harness.h"
#include "TraceRecorder.h"

namespace {

using fuzz::Bytes;
using fuzz::FuzzInput;
using fuzz::GuardedBuffer;

constexpr std::uint32_t noOfKinds = 23;

struct Kind {
    std::uint32_t size; ///< Bytes of an element.
    char form;          ///< 'i' signed, 'u' unsigned, 'b' bool, 'f' float, 'd' double, 's' string, 'o' object
    bool isArray;
};

constexpr std::array<Kind, noOfKinds> kinds{{{1, 'i', false},
                                             {1, 'i', true},
                                             {2, 'i', false},
                                             {2, 'i', true},
                                             {4, 'i', false},
                                             {4, 'i', true},
                                             {1, 'u', false},
                                             {1, 'u', true},
                                             {2, 'u', false},
                                             {2, 'u', true},
                                             {4, 'u', false},
                                             {4, 'u', true},
                                             {4, 'b', false},
                                             {4, 'b', true},
                                             {1, 'i', false},
                                             {1, 'i', true},
                                             {1, 's', true},
                                             {4, 'f', false},
                                             {4, 'f', true},
                                             {8, 'd', false},
                                             {8, 'd', true},
                                             {sizeof(void *), 'o', false},
                                             {sizeof(void *), 'o', true}}};

std::uint64_t sizeOf(std::uint32_t type, std::uint32_t noOfElements) {
    if (type >= noOfKinds) {
        return 1;
    }
    const Kind &kind = kinds[type];
    return kind.isArray ? std::uint64_t{kind.size} * noOfElements : kind.size;
}

template <class Number>
Number numberIn(const Bytes &bytes, std::size_t at) {
    Number number{};
    const std::size_t there = at < bytes.size() ? std::min(sizeof number, bytes.size() - at) : 0;
    if (there != 0) {
        std::memcpy(&number, bytes.data() + at, there);
    }
    return number;
}

template <class... Values>
std::string printed(const char *format, Values... values) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

/// One element in its own width.
std::string elementText(const Kind &kind, const Bytes &content, std::size_t index) {
    const std::size_t at = index * kind.size;
    switch (kind.form) {
    case 'i':
        return kind.size == 1   ? std::to_string(numberIn<std::int8_t>(content, at))
               : kind.size == 2 ? std::to_string(numberIn<std::int16_t>(content, at))
                                : std::to_string(numberIn<std::int32_t>(content, at));
    case 'u':
        return kind.size == 1   ? std::to_string(numberIn<std::uint8_t>(content, at))
               : kind.size == 2 ? std::to_string(numberIn<std::uint16_t>(content, at))
                                : std::to_string(numberIn<std::uint32_t>(content, at));
    case 'b':
        return numberIn<std::uint32_t>(content, at) != 0 ? "true" : "false";
    case 'f':
        return printed("%e", static_cast<double>(numberIn<float>(content, at)));
    default:
        return printed("%e", numberIn<double>(content, at));
    }
}

/// The old form shows every integer as the 32-bit word that begins at it.
std::string oldElementText(const Kind &kind, const Bytes &content, std::size_t index) {
    return kind.form == 'i' || kind.form == 'u' ? std::to_string(numberIn<std::int32_t>(content, index * 4))
                                                : elementText(kind, content, index);
}

std::string objectText(const Kind &kind) {
    return kind.isArray ? "Sorry, ToString(TYPE_OBJECT_ARRAY) is not supported"
                        : "Sorry, ToString(TYPE_OBJECT) is not supported";
}

std::string stringText(const Bytes &content) {
    return {content.begin(), std::find(content.begin(), content.end(), 0)};
}

/// The parts that a text is put together of; a single value is one part.
std::vector<std::string> partsOf(std::uint32_t type, std::uint32_t noOfElements, const Bytes &content,
                                 std::string (*element)(const Kind &, const Bytes &, std::size_t)) {
    if (type >= noOfKinds) {
        return {"Unknown variable type"};
    }
    const Kind &kind = kinds[type];
    if (kind.form == 'o') {
        return {objectText(kind)};
    }
    if (kind.form == 's') {
        return {stringText(content)};
    }
    if (!kind.isArray) {
        return {element(kind, content, 0)};
    }
    std::vector<std::string> parts{"["};
    for (std::uint32_t i = 0; i < noOfElements; ++i) {
        parts.push_back(element(kind, content, i));
        parts.emplace_back(i + 1 < noOfElements ? " ," : "]");
    }
    if (noOfElements == 0) {
        parts.emplace_back("]");
    }
    return parts;
}

std::string joined(const std::vector<std::string> &parts, std::size_t longestPart = SIZE_MAX) {
    std::string text;
    for (const std::string &part : parts) {
        text += part.substr(0, longestPart);
    }
    return text;
}

void checkFormatText(CVariable &variable, const std::string &expected, std::uint32_t size, bool wantsNeeded) {
    GuardedBuffer buffer(size);
    std::uint32_t needed = 0xA5A5A5A5;
    const EAFResult result =
        CVariable_FormatText(&variable, size != 0 ? buffer.data() : nullptr, size, wantsNeeded ? &needed : nullptr);
    FUZZ_CHECK(buffer.isGuardWhole(), "FormatText wrote beside a buffer of " + std::to_string(size));
    FUZZ_CHECK(result == (expected.size() < size ? eAF_S_OK : eAF_E_BUFFER_TOO_SMALL), expected);
    FUZZ_CHECK(!wantsNeeded || needed == expected.size() + 1, expected);
    if (size != 0) {
        const std::string cut = expected.substr(0, size - 1);
        FUZZ_CHECK(std::memcmp(buffer.data(), cut.c_str(), cut.size() + 1) == 0, expected);
    }
}

/// An array's pieces are each bounded by the size, not by the space left: the buffer holds them all.
void checkToString(CVariable &variable, const std::vector<std::string> &parts, std::uint32_t size) {
    const bool isArray = parts.size() > 1;
    const std::string whole = joined(parts);
    GuardedBuffer buffer(isArray ? whole.size() + 1 + size : size);
    FUZZ_CHECK(CVariable_ToString(&variable, buffer.data(), size) == eAF_S_OK, whole);
    FUZZ_CHECK(buffer.isGuardWhole(), "ToString wrote beside a buffer of " + std::to_string(size));
    if (isArray) {
        const std::string expected = joined(parts, size);
        FUZZ_CHECK(std::memcmp(buffer.data(), expected.c_str(), expected.size() + 1) == 0, expected);
    } else if (variable.type == TYPE_STRING) {
        std::string expected = whole.substr(0, size);
        expected.resize(size, '\0');
        FUZZ_CHECK(std::memcmp(buffer.data(), expected.data(), size) == 0, whole);
    } else {
        const std::string expected = whole.substr(0, size - 1);
        FUZZ_CHECK(std::memcmp(buffer.data(), expected.c_str(), expected.size() + 1) == 0, whole);
    }
}

void checkRefusals(CVariable &variable, std::uint32_t size) {
    GuardedBuffer buffer(size);
    const bool isMade = variable.content != nullptr;
    FUZZ_CHECK(CVariable_ToString(nullptr, buffer.data(), size) == eAF_E_INVALID_ARGUMENT, "no variable");
    FUZZ_CHECK(CVariable_ToString(&variable, nullptr, size) == eAF_E_INVALID_ARGUMENT, "no buffer");
    FUZZ_CHECK(CVariable_ToString(&variable, buffer.data(), 0) == eAF_E_INVALID_ARGUMENT, "no room");
    FUZZ_CHECK(CVariable_FormatText(nullptr, buffer.data(), size, nullptr) == eAF_E_INVALID_ARGUMENT, "no variable");
    FUZZ_CHECK(size == 0 || CVariable_FormatText(&variable, nullptr, size, nullptr) == eAF_E_INVALID_ARGUMENT,
               "no buffer");
    if (!isMade && size != 0) {
        FUZZ_CHECK(CVariable_ToString(&variable, buffer.data(), size) == eAF_E_NOT_INITIALIZED, "no content");
        FUZZ_CHECK(CVariable_FormatText(&variable, buffer.data(), size, nullptr) == eAF_E_NOT_INITIALIZED,
                   "no content");
    }
    for (std::size_t i = 0; i < size; ++i) {
        FUZZ_CHECK(buffer.isUntouched(i), "a refused call wrote");
    }
    FUZZ_CHECK(buffer.isGuardWhole(), "a refused call wrote beside the buffer");
}

void checkNameAndPath(CVariable &variable, FuzzInput &input, const std::string &givenName) {
    const std::string name = std::string(givenName.c_str()).substr(0, 119);
    const char *found = "left over";
    const EAFResult result = CVariable_GetName(&variable, &found);
    FUZZ_CHECK(result == (name.empty() ? eAF_E_FAILED : eAF_S_OK), name);
    FUZZ_CHECK(name.empty() ? found == nullptr : name == found, name);
    const std::string a = input.text(input.below(0x300)).c_str();
    const std::string b = input.text(input.below(0x300)).c_str();
    const std::string c = input.text(input.below(0x80)).c_str();
    FUZZ_CHECK(CVariable_SetPath(&variable, a.c_str(), b.c_str(), c.c_str()) == eAF_S_OK, "SetPath");
    FUZZ_CHECK(CVariable_GetPath(&variable, &found) == eAF_S_OK, "GetPath");
    std::string expected = a;
    expected.append("/").append(b).append("/").append(c);
    FUZZ_CHECK(expected.substr(0, 511) == found, expected);
}

/// Copies in and out what a block of its own allows, and nothing else.
void checkContentAccess(CVariable &variable, Bytes &content, FuzzInput &input) {
    const std::uint32_t size = CVariable_GetSizeInBytes(&variable);
    GuardedBuffer out(size);
    Bytes in = input.bytes(size);
    in.resize(size);
    // Of no size, the block has no address.
    if (CVariable_GetAccessType(&variable) == ByReference) {
        FUZZ_CHECK(CVariable_SetContent(&variable, in.data()) == eAF_E_WRONG_ACCESS, "SetContent");
        FUZZ_CHECK(CVariable_GetContent(&variable, out.data()) == eAF_E_WRONG_ACCESS, "GetContent");
        return;
    }
    FUZZ_CHECK(CVariable_SetContent(&variable, in.data()) == eAF_S_OK, "SetContent");
    FUZZ_CHECK(CVariable_GetContent(&variable, out.data()) == eAF_S_OK, "GetContent");
    FUZZ_CHECK(out.isGuardWhole() && std::equal(in.begin(), in.end(), out.data(),
                                                [](unsigned char a, char b) { return static_cast<char>(a) == b; }),
               "GetContent is not what SetContent was given");
    content = in;
}

/// Objects as contents are pointers, which bytes of a fuzzer are not: those stay as the variable made them.
bool isObject(std::uint32_t type) {
    return type < noOfKinds && kinds[type].form == 'o';
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    test::TraceRecorder::reset();
    FuzzInput input(data, size);
    const bool isOddType = input.oneIn(16);
    const std::uint32_t type = isOddType ? input.word() : input.below(noOfKinds);
    const bool isOwn = input.oneIn(2) || isObject(type);
    const std::uint32_t noOfElements = isObject(type) ? input.below(5) : input.below(input.oneIn(8) ? 0x400 : 20);
    const std::uint32_t bufferSize = input.below(input.oneIn(4) ? 0x1000 : 48);
    const bool wantsNeeded = input.oneIn(2);
    const std::string name = input.text(input.below(0x100));

    const std::uint64_t contentSize = sizeOf(type, noOfElements);
    // In a block of the caller's whole words are read of every integer.
    Bytes block = isOwn ? Bytes() : input.bytes(std::max<std::size_t>(4 * noOfElements, 8));
    block.resize(
        isOwn ? 0 : std::max<std::size_t>({static_cast<std::size_t>(contentSize), std::size_t{4} * noOfElements, 8}));
    Bytes content = isOwn ? Bytes(static_cast<std::size_t>(contentSize)) : block;

    CVariable variable{};
    FUZZ_CHECK(CVariable_Construct(&variable, isOwn ? nullptr : block.data(), static_cast<EVariableType>(type),
                                   noOfElements, name.c_str(), nullptr) == eAF_S_OK,
               "Construct");
    FUZZ_CHECK(CVariable_GetSizeInBytes(&variable) == contentSize, "size of type " + std::to_string(type));
    FUZZ_CHECK(CVariable_GetAccessType(&variable) == (isOwn ? ByValue : ByReference), "access");
    if (!isObject(type)) {
        checkContentAccess(variable, content, input);
    }
    checkNameAndPath(variable, input, name);

    Bytes shown = content; // a text takes its bytes from the content alone
    shown.resize(type == TYPE_STRING ? static_cast<std::size_t>(contentSize) : shown.size());
    checkFormatText(variable, joined(partsOf(type, noOfElements, shown, elementText)), bufferSize, wantsNeeded);
    if (bufferSize != 0) {
        checkToString(variable, partsOf(type, noOfElements, shown, oldElementText), bufferSize);
    }
    checkRefusals(variable, bufferSize);
    FUZZ_CHECK(std::equal(block.begin(), block.end(), content.begin()) || isOwn, "a block was changed by being shown");
    FUZZ_CHECK(CVariable_Destruct(&variable) == eAF_S_OK, "Destruct");
    if (isOwn) {
        checkRefusals(variable, bufferSize);
    }
    FUZZ_CHECK(test::TraceRecorder::openRecords() == 0, "a trace was left open");
    return 0;
}
