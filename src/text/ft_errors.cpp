// FreeType's own error list as a table: its error header is included once more, with macros that make rows.
#include <cstring>

#include "text/text.hpp"

#undef FTERRORS_H_
#define FT_ERROR_START_LIST const kel_ft_error ft_errors[] = {
#define FT_ERRORDEF(name, code, text) {code, text},
#define FT_ERROR_END_LIST \
    { 0, nullptr }        \
    }                     \
    ;

#include FT_ERRORS_H

const char* kel::ft_error_text(FT_Error error) {
    const kel_ft_error* row = ft_errors;
    while (row->text && row->code != error) ++row;
    return row->text ? row->text : "<unknown>";
}
