/// @file
/// What the rows of the providers store and retrieve: the values of a controller's variables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "CVariable.h"

namespace speed {

struct Value {
    std::string path;
    EVariableType type;
    std::uint32_t noOfElements;
    std::size_t offset; ///< Of its content in the contents of all.
    std::size_t size;

    std::string group() const { return path.substr(0, path.rfind('/')); }
    std::string name() const { return path.substr(path.rfind('/') + 1); }
};

/// Of ten variables five are numbers of 32 bits; the others a bool, a double, a float, a text of 32 bytes and an array
/// of eight numbers of 16 bits. Contents lie as modules keep them: each where its variable is told that it lies.
class Values {
public:
    static constexpr std::size_t perObject = 100;
    static constexpr std::size_t perRegion = 10'000;

    explicit Values(std::size_t count);

    const std::vector<Value> &all() const { return m_values; }
    const std::vector<unsigned char> &contents() const { return m_contents; }
    const unsigned char *contentOf(const Value &value) const { return m_contents.data() + value.offset; }
    unsigned char *contentOf(const Value &value) { return m_contents.data() + value.offset; }

    /// The content as what it is.
    template <class Number>
    Number numberOf(const Value &value) const {
        Number number{};
        std::memcpy(&number, contentOf(value), sizeof number);
        return number;
    }
    template <class Number>
    void setNumber(const Value &value, Number number) {
        std::memcpy(contentOf(value), &number, sizeof number);
    }

    /// Afterwards not one of them is as it was.
    void changeAll();
    /// A number, and another one each time.
    void changeOne();
    void changeNone() {}

    /// As before a retrieve.
    void clear() { m_contents.assign(m_contents.size(), 0); }

private:
    void change(const Value &value, std::size_t index);

    std::vector<Value> m_values;
    std::vector<unsigned char> m_contents;
    std::uint32_t m_changes = 0;
};

/// Which values differ from those that were stored last, found as cheaply as it can be: by comparing their bytes.
class Shadow {
public:
    /// Calls visit with each value that differs, and takes it for stored.
    template <class Visit>
    void update(const Values &values, Visit visit) {
        const bool isFirst = m_contents.empty();
        m_contents.resize(values.contents().size());
        for (const Value &value : values.all()) {
            const unsigned char *content = values.contentOf(value);
            unsigned char *stored = m_contents.data() + value.offset;
            if (isFirst || std::memcmp(content, stored, value.size) != 0) {
                std::memcpy(stored, content, value.size);
                visit(value);
            }
        }
    }

    /// @return whether any of them differs.
    bool updateAll(const Values &values) {
        bool differs = false;
        update(values, [&](const Value & /*value*/) { differs = true; });
        return differs;
    }

    /// The values are those that were retrieved.
    void set(const Values &values) { m_contents = values.contents(); }

private:
    std::vector<unsigned char> m_contents;
};

} // namespace speed
