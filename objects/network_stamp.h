// Telling whether anything of a network has changed.
#pragma once

#include <cstdint>
#include <initializer_list>

class trBase;

/// A number for all that some nodes depend on: every parameter of theirs, of their children and of what their
/// links lead to, and so on. Nodes tell those that link to them of changes, but not those farther off. Null
/// nodes are allowed. Main thread only.
std::uint64_t NetworkStamp(std::initializer_list<const trBase*> nodes);
