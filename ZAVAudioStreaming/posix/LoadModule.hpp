#pragma once

namespace zav::detail {

/// Loads the part of the library that is a file of its own because of what it is built on, and
/// returns one of its tables: `loadModule("FFmpeg", "Files")`. The file is looked for beside the
/// library (or the program, where that contains the library), then wherever the dynamic loader
/// looks. Null when there is no such file, or when it is of another version: the names of its
/// tables contain the version. A module stays loaded, since what it made can outlive every caller.
///
/// Threads: any.
const void* loadModule(const char* moduleName, const char* tableName);

/// The table that a module fills, loaded by the first call; null as with `loadModule`. `Table`
/// names its module and itself: `kModuleName`, `kTableName`.
///
/// Threads: any.
template <class Table>
const Table* moduleTable() {
    static const auto* const table =
        static_cast<const Table*>(loadModule(Table::kModuleName, Table::kTableName));
    return table;
}

}  // namespace zav::detail
