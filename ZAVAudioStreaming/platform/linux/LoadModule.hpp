#pragma once

namespace zav {

/// Loads a part of the library that stands in a file of its own because of what it is built on, and
/// finds its entry. The file is looked for beside the library (or the program, where that holds the
/// library), then wherever the dynamic loader looks. Null when it is not there, or has no such
/// entry: the entry's name holds the version. A module stays loaded, since what it made can outlive
/// every caller.
///
/// Threads: any.
const void* loadModule(const char* fileName, const char* entryName);

}  // namespace zav
