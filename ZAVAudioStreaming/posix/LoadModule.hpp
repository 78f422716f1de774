#pragma once

namespace zav::detail {

/// Loads a module of the library and returns one of its tables, as in `loadModule("FFmpeg",
/// "Files")`. A module is a separate shared object, because of the libraries that it links.
///
/// The search begins in the folder of the library, or of the program if the program contains the
/// library. Then it continues where the dynamic loader searches. Returns null if there is no such
/// file, or if the module belongs to another version of the library. The names of a module's tables
/// contain the version. A module stays loaded, because objects that it made can outlive every
/// caller.
///
/// Threads: any.
const void* loadModule(const char* moduleName, const char* tableName);

/// Returns a module's table. The first call loads the module. Returns null in the same cases as
/// `loadModule`. `Table::kModuleName` is the name of the module, and `Table::kTableName` is the
/// name of the table.
///
/// Threads: any.
template <class Table>
const Table* moduleTable() {
    static const auto* const table =
        static_cast<const Table*>(loadModule(Table::kModuleName, Table::kTableName));
    return table;
}

}  // namespace zav::detail
