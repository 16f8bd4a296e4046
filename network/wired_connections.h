#pragma once

#include <mutex>
#include <set>
#include <string>

/// Identifiers, in registry form, of all connections that were ever seen to be wired. Only grows:
/// a disconnect is judged by whether the connection was ever wired, not by whether it is now.
using WiredConnections = std::set<std::wstring>;

/// Held for the whole of a connectivity change, address wait and radio switches included, and
/// while the start-up fill adds an element. Taken before the Ethernet-check lock, never after it.
inline std::mutex connectivityChangeLock;
