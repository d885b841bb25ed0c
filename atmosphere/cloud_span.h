// The stretch of a ray that runs through a cloud layer. Pure functions; world space, metres.
#pragma once

#include "core/vector.h"

/// What a ray is clipped by: the shell between two spheres round a planet's centre, and perhaps a sphere that
/// localises it.
struct CloudShell {
  trVector centre;
  double baseRadius = 0, topRadius = 0;
  bool isLocal = false;
  trVector localCentre;
  double localRadius = 0;
};

/// Between entry and exit the ray may pass through the hollow below the base once: `gap` metres of `length`
/// that aren't in the shell.
struct CloudSpan {
  trVector entry, direction;  ///< unit
  double entryDistance = 0;   ///< from the ray's origin
  double length = 0;          ///< from entry to exit
  double gap = 0;
};

/// False where nothing of the way from `from` to `to` lies in the shell.
bool FindCloudSpan(const CloudShell& shell, const trVector& from, const trVector& to, CloudSpan& span);
