// Text helpers that never depend on the process locale: the interface runs
// in French, where "%f" writes a decimal comma, but files and fixed-format
// lines must always carry a dot.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

// printf-style formatting in the "C" locale, whatever the process locale is.
std::string cformat(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// Shortest decimal text that reads back to the same double ("2", "0.5", "1e-07").
std::string shortest(double v);

// Pads with blanks to `width` characters (UTF-8 code points, not bytes), like
// a "%-Ns" that counts letters.
std::string padRight(std::string_view s, int width);

// Parses a whole string as a number in the "C" locale; nothing when any
// character is left over or the text is empty.
std::optional<double> parseDouble(std::string_view s);
std::optional<long long> parseInteger(std::string_view s);

std::vector<std::string> split(std::string_view s, char sep);

// Natural order of names: digit runs compare by value, letters ignore case,
// so "Cam 2" < "Cam 10". Returns <0, 0, >0.
int naturalCompare(std::string_view a, std::string_view b);

std::string toLower(std::string_view s);

// 64-bit FNV-1a of the bytes: a stable short key for names on disk.
uint64_t fnv1a(std::string_view bytes);

}  // namespace qv
