// The host's functions for configuration text. They work in place, copy nothing, keep no state and
// take no lock.
//
// Text is `first` to `last`, the address of its last byte, and a zero byte stands behind it.
#pragma once

#include "types.h"

// Returns true for a character that may be part of a name.
using name_char_t = bool (*)(char c);

extern "C" {

// Returns the next position to examine at or after `p`, the start of a line: passes over blank
// lines, and over lines whose first character after blanks and tabs is "#". The host of this
// repository also passes over a UTF-8 byte order mark at the start of a line, and a line of
// carriage returns is blank to it. Stops at a zero byte, so `p` may be the position behind the last
// byte, and not further.
HOPLAR_EXPORT const char *skip_comment(const char *p);

// Returns the address of the character that ends the line at `p`: its newline, or the position
// behind `last` for a last line without one. Null when no line remains (`p` behind `last`).
HOPLAR_EXPORT const char *find_eol(const char *p, const char *last);

// Returns the first `c` in [p, eol), or null.
HOPLAR_EXPORT const char *find_token(char c, const char *p, const char *eol);

// Returns the first character of the name in [first, last], both included. Leading blanks and tabs
// are passed over; the name is one or more characters that `is_name_char` takes (null: letters,
// digits, "_", "-" and "."). Sets `*length`; when there is no name, returns null and leaves
// `*length` untouched.
HOPLAR_EXPORT const char *find_name(const char *first, const char *last, std::uint32_t *length,
                                    name_char_t is_name_char);

}  // extern "C"
