/// @file
/// Which bytes are text.
#pragma once

#include <string_view>

namespace storage {

/// @return whether every byte belongs to a character of UTF-8 in its shortest form.
bool isUtf8(std::string_view text);

/// Takes a string's content apart at its first NUL.
/// @param text  receives what stands before it.
/// @return whether that is UTF-8 and nothing but zeros follows: then the text says all.
bool isText(std::string_view content, std::string_view &text);

} // namespace storage
