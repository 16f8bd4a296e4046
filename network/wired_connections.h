#pragma once

#include <set>
#include <string>

/// Identifiers, in registry form, of all connections that were ever seen to be wired. Only grows:
/// a disconnect is judged by whether the connection was ever wired, not by whether it is now.
using WiredConnections = std::set<std::wstring>;
