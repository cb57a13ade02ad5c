// SPDX-License-Identifier: Apache-2.0
#pragma once

// Text from outside, which may be of any length and any bytes.

#include <cstddef>
#include <string>
#include <string_view>

namespace Kiv {

// How many bytes the character has that `text` begins with; 0 when it begins with none in UTF-8
// (and when it is empty).
std::size_t utf8Length( std::string_view text );
bool isUtf8( std::string_view text );

// `text` for a message that quotes it: no more than its first `most` bytes, not cut in the midst of
// a character and with "..." behind them then, in one line: control characters are "?".
std::string excerpt( std::string_view text, std::size_t most = 100 );

} // namespace Kiv
