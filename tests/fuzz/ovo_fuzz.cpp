// Foreign bytes as an OVO file.
#include <cmath>
#include <string>

#include "objectio/ovo_file.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  SilenceLog();
  trScene scene;
  scene.Init();
  OvoGeometry geometry(scene, trMaterial(), size % 2);
  bool isCut = false;
  if (!WalkOvo({data, size}, "fuzz", geometry, isCut).empty()) Check(scene.NumPts() == 0);
  // Deflate gives a thousand bytes for one, and a point takes twelve of them.
  Check(static_cast<std::size_t>(scene.NumPts()) <= size * 86);
  for (long i = 1; i <= scene.NumTris(); ++i) {
    const trTri& tri = *scene.GetPTri(i);
    trVector corners[3];
    Check(scene.GetPointVecs(tri.point, corners, 3) == 3);
    Check(scene.GetPMaterial(tri.material) != nullptr);
    for (int corner = 0; corner < 3; ++corner) {
      Check(tri.texVert[corner] == 0 || scene.GetPTexVert(tri.texVert[corner]));
      Check(tri.normal[corner] == 0 || scene.GetPNormal(tri.normal[corner]));
      Check(std::isfinite(corners[corner].LengthSquared()));
    }
  }
  return 0;
}
