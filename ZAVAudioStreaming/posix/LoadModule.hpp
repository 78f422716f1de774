#pragma once

namespace zav::detail {

/// Loads a module of the library and returns one of its tables, as in `loadModule("FFmpeg",
/// "Files")`. A module is a shared object of its own, because of the libraries that it links.
///
/// The file is searched for beside the library (or the program, if that contains the library), then
/// where the dynamic loader searches. Returns null if there is no such file, or if it belongs to
/// another version of the library: the names of its tables contain the version. A module stays
/// loaded, because objects that it made can outlive every caller.
///
/// Threads: any.
const void* loadModule(const char* moduleName, const char* tableName);

/// Returns a module's table, which the first call loads; null as with `loadModule`. `Table` names
/// its module and itself in `kModuleName` and `kTableName`.
///
/// Threads: any.
template <class Table>
const Table* moduleTable() {
    static const auto* const table =
        static_cast<const Table*>(loadModule(Table::kModuleName, Table::kTableName));
    return table;
}

}  // namespace zav::detail
