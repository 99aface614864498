#include <array>
#include <cstdint>
#include <cstdio>

#include "CStorageObject.h"
#include "CVariable.h"
#include "Measure.h"

namespace instructions {

namespace {

constexpr std::uint32_t noOfElements = 16;

/// A variable for the time that it is looked at.
class Variable {
public:
    Variable(EVariableType type, std::uint32_t elements, void *content) {
        require("a variable", CVariable_Construct(&m_variable, content, type, elements, "Frequency", nullptr));
    }
    ~Variable() { CVariable_Destruct(&m_variable); }
    Variable(const Variable &) = delete;
    Variable &operator=(const Variable &) = delete;
    CVariable *get() { return &m_variable; }

private:
    CVariable m_variable{};
};

template <class Operation>
void measureHundred(const std::string &path, Operation operation) {
    measure(path, 100, [&operation] {
        for (int i = 0; i < 100; ++i) {
            require("an operation", operation());
        }
    });
}

void measureText(const std::string &what, EVariableType type, std::uint32_t elements, void *content) {
    Variable variable(type, elements, content);
    std::array<char, 512> text{};
    measureHundred("ToString of " + what, [&] {
        return CVariable_ToString(variable.get(), text.data(), static_cast<std::uint32_t>(text.size()));
    });
    measureHundred("FormatText of " + what, [&] {
        std::uint32_t needed = 0;
        return CVariable_FormatText(variable.get(), text.data(), static_cast<std::uint32_t>(text.size()), &needed);
    });
}

void texts() {
    std::array<std::int32_t, noOfElements> integers{};
    for (std::size_t i = 0; i < integers.size(); ++i) {
        integers[i] = -100000 - static_cast<std::int32_t>(i);
    }
    std::array<double, noOfElements> doubles{};
    doubles.fill(-1.25e-7);
    std::array<char, 64> string{};
    std::snprintf(string.data(), string.size(), "twenty-four letters long");
    measureText("a 32-bit integer", TYPE_INT32, 1, integers.data());
    measureText("16 32-bit integers", TYPE_INT32_ARRAY, noOfElements, integers.data());
    measureText("a double", TYPE_DOUBLE, 1, doubles.data());
    measureText("a string of 64 bytes", TYPE_STRING, static_cast<std::uint32_t>(string.size()), string.data());
}

void contents() {
    Variable own(TYPE_INT32_ARRAY, noOfElements, nullptr);
    std::array<std::int32_t, noOfElements> integers{};
    measureHundred("lock and unlock", [&own] {
        require("locking", CVariable_Lock(own.get()));
        return CVariable_UnLock(own.get());
    });
    measureHundred("set and get 16 32-bit integers", [&] {
        require("setting", CVariable_SetContent(own.get(), integers.data()));
        return CVariable_GetContent(own.get(), integers.data());
    });
    measureHundred("set a path",
                   [&own] { return CVariable_SetPath(own.get(), "Configuration", "Carrier000012", "Frequency"); });
    measureHundred("make and end a variable", [&integers] {
        CVariable variable{};
        require("making", CVariable_Construct(&variable, integers.data(), TYPE_INT32, 1, "Frequency", nullptr));
        return CVariable_Destruct(&variable);
    });
}

void objects() {
    std::int32_t content = 0;
    measureHundred("object with 10 variables, made and ended", [&content] {
        CStorageObject object{};
        CStorageObject_Construct(&object, "Carrier000012");
        static const std::array<const char *, 10> names{"Gain0", "Gain1", "Gain2", "Gain3", "Gain4",
                                                        "Gain5", "Gain6", "Gain7", "Gain8", "Gain9"};
        for (const char *name : names) {
            SVariableDescriptor descriptor{&content, TYPE_INT32, 1, name, nullptr};
            require("creating", CStorageObject_CreateVariables(&object, &descriptor, 1));
        }
        CStorageObject_Destruct(&object);
        return eAF_S_OK;
    });
    CStorageObject object{};
    CStorageObject_Construct(&object, "Carrier000012");
    for (std::uint32_t i = 0; i < 100; ++i) {
        const std::string name = numbered("Gain", i);
        SVariableDescriptor descriptor{&content, TYPE_INT32, 1, name.c_str(), nullptr};
        require("creating", CStorageObject_CreateVariables(&object, &descriptor, 1));
    }
    measureHundred("last of an object's 100 variables by name", [&object] {
        CVariable *variable = nullptr;
        require("looking up", CStorageObject_GetVariableByName(&object, "Gain000099", &variable) == eAF_S_TRUE);
        return eAF_S_OK;
    });
    measure("visit a variable of an object of 100", 100, [&object] {
        CListIterator iterator{};
        EAFResult result = CStorageObject_GetVariableIterator(&object, &iterator);
        while (result == eAF_S_OK) {
            CVariable *variable = nullptr;
            result = CStorageObject_GetNextVariable(&object, &variable, &iterator);
        }
        require("visiting", result == eAF_W_NO_MORE_DATA);
    });
    CStorageObject_Destruct(&object);
}

} // namespace

void variablePaths() {
    texts();
    contents();
    objects();
}

} // namespace instructions
