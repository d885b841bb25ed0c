// Repeatable drops, faster: the bytes of one drop after another, from many at once.
//
// Threads walk drops ahead of their turn. A drop owns the tiles of ground that it touches, from the first
// touch until all earlier drops are over, and keeps what they looked like when it took them. A drop that
// meets a tile of an earlier drop waits until that one is over. One that meets a tile of a later drop has it
// undone: its tiles get back what they held, and it starts again. So each drop finds the ground as all
// earlier drops left it, and as no later one has touched it.
//
// Where a drop's numbers begin in the generator's sequence is known before the drops ahead of it have walked,
// as long as all of them take all their steps. A border that ends drops breaks that: those walk on one
// thread, which deals the later drops out anew whenever one has ended early.
#pragma once

#include "heightfield/drop_walk.h"

/// Whether a walk in order is certain to give the serial one's bytes: heights and settings in sane ranges, a
/// raster of some size, a processor that can.
bool CanWalkInOrder(const DropField& field);

/// How many of `cores` threads to use: on small rasters they are in each other's way. 0 where drops one after
/// another are as fast.
int ThreadsInOrder(const DropField& field, int cores);

/// WalkDrops, with the same bytes, on up to `threads` threads. For what CanWalkInOrder. When stopped, it
/// leaves what a number of first drops have done. Throws without memory.
bool WalkDropsInOrder(const DropField& field, int threads, trMersenneTwister& generator, std::int64_t drops,
                      DropWatch& watch);
