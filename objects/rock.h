// rock and poly_cube: solids cut by planes, shattered, subdivided and displaced.
#pragma once

#include "core/scene_maker.h"
#include "objects/cut_solid.h"

/// What rocks and cubes share: everything but the planes.
class CutSolidGenerator : public juObjectGenerator {
 public:
  long OnFirstCreate() override;
  unsigned char SupportsVariations() override { return 1; }
  long NumVariations() override;
  long GenerateMesh(trScene& scene, long materialIndex) override;

 protected:
  void DeclareVariations();
  /// The tabs that follow the solid's own.
  void DeclareCommonTabs();

  virtual long NumPlanes() const = 0;
  virtual CutPlane NextPlane(long index, trMersenneTwister& draws) const = 0;
  virtual double Size() const { return 1; }

 private:
  long NumShatterPlanes() const;
  bool HasTooManyPlanes() const;

  long uniqueVariations_, seed_;
  trIntHint variationsHint_;
  trRandomSeedGuiPushButton randomiseButton_{this};

  unsigned char shatter_;
  double shatterProbability_, shatterSeparation_;
  long numberOfShatterPlanes_;

  unsigned char subdivideMesh_;
  long subdivisionLevel_;
};

/// Half-spaces that touch a ball of the rock's diameter, in random directions.
class Rock : public CutSolidGenerator {
 public:
  Rock();

 protected:
  long NumPlanes() const override { return numberOfFaces_; }
  CutPlane NextPlane(long index, trMersenneTwister& draws) const override;
  double Size() const override { return diameter_; }

 private:
  long numberOfFaces_;
  double diameter_;
  trIntHint facesHint_;
};

/// A cube of edge 1.
class PolyCube : public CutSolidGenerator {
 public:
  PolyCube();

 protected:
  long NumPlanes() const override { return 6; }
  CutPlane NextPlane(long index, trMersenneTwister& draws) const override;
};
