// Writes a large JSON object part by part, so that only one of its rows is in memory at a time.
#pragma once

#include <functional>
#include <iosfwd>
#include <nlohmann/json.hpp>

#include "host/base/log.h"

namespace host {

using Json = nlohmann::ordered_json;

// Puts the commas, and in lines the indentation too. Only ASCII is written, so that no terminal
// obeys what names hold. Bytes of file names that are no UTF-8 are replaced instead of being an
// error.
class JsonWriter {
public:
    enum class Form { LINES, ONE_LINE };

    JsonWriter(std::ostream &out, Form form);

    // Writes a member of the object that is open, or with a null name a row of the array.
    void value(const char *name, const Json &json);

    // Opens an object '{' or an array '[' in the same way, and the object that is all.
    void open(const char *name, char bracket);
    void open() { open(nullptr, '{'); }

    // Closes what was opened last; the caller names its bracket.
    void close(char bracket);

    // Writes an array of what `to_json` makes of each row that `is_written` returns true for.
    template <typename Rows, typename ToJson, typename IsWritten>
    void array(const char *name, const Rows &rows, ToJson &&to_json, IsWritten &&is_written) {
        open(name, '[');
        for (const auto &row : rows)
            if (std::invoke(is_written, row))
                value(nullptr, to_json(row));
        close(']');
    }
    template <typename Rows, typename ToJson>
    void array(const char *name, const Rows &rows, ToJson &&to_json) {
        array(name, rows, to_json, [](const auto &) { return true; });
    }

private:
    void begin_part(const char *name);
    void begin_line();

    std::ostream &out_;
    const Form form_;
    unsigned depth_ = 0;
    bool is_first_ = true;  // of what is open
};

// Returns the row of a message in a report.
Json message_json(const KeptMessage &message);

}  // namespace host
