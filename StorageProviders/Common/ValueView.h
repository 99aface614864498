/// @file
/// How values are handed over to a store and by it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "StoredValue.h"

namespace storage {

/// A value where it lies; content as StoredValue's.
struct ValueView {
    std::string_view path;
    EVariableType type = TYPE_INT8;
    std::uint32_t noOfElements = 0;
    const unsigned char *content = nullptr;
    std::size_t size = 0;

    ValueView() = default;
    ValueView(std::string_view pathOf, EVariableType typeOf, std::uint32_t count, const unsigned char *begin,
              std::size_t length)
        : path(pathOf), type(typeOf), noOfElements(count), content(begin), size(length) {}
    ValueView(const StoredValue &value) // not explicit: it is one
        : ValueView(value.path, value.type, value.noOfElements, value.content.data(), value.content.size()) {}

    bool operator==(const ValueView &other) const {
        return type == other.type && noOfElements == other.noOfElements && path == other.path && size == other.size &&
               (size == 0 || std::memcmp(content, other.content, size) == 0);
    }
};

using ValueViews = std::vector<ValueView>;

/// Takes what a store holds, value by value. Throws std::bad_alloc.
class ValueSink {
public:
    virtual ~ValueSink() = default;

    /// @param size  of all paths and contents, as far as it is known.
    virtual void reserve(std::size_t noOfValues, std::size_t size) = 0;
    virtual void add(const ValueView &value) = 0;
    virtual void clear() = 0;
};

class ValueList final : public ValueSink {
public:
    explicit ValueList(StoredValues &values) : m_values(values) {}

    void reserve(std::size_t noOfValues, std::size_t /*size*/) override { m_values.reserve(noOfValues); }
    void add(const ValueView &value) override {
        m_values.push_back(
            {std::string(value.path), value.type, value.noOfElements, {value.content, value.content + value.size}});
    }
    void clear() override { m_values.clear(); }

private:
    StoredValues &m_values;
};

} // namespace storage
