// Resource tables: what both filters do with them alike.
#include <cstring>

#include "graph/filters.hpp"

namespace kel {

owned<mmf_resource> make_resource_table(std::span<const resource_row> rows, void* state) {
    auto table = make_records<mmf_resource>(rows.size() + 1);
    if (!table) return table;
    for (std::size_t i = 0; i < rows.size(); ++i)
        table[i] = {rows[i].name, rows[i].description, resource_field<void>(rows[i], state), rows[i].range,
                    rows[i].type};
    return table;
}

const resource_row* find_resource(std::span<const resource_row> rows, const char* name) {
    for (const resource_row& row : rows)
        if (std::strcmp(row.name, name) == 0) return &row;
    return nullptr;
}

}  // namespace kel
