// get_object_vector: where an object or a copy of it stands, how it is turned, and how large it is.
#pragma once

#include "core/shader.h"

/// Of the object that is linked, or, without a link, of what is being shaded: in a population each copy has
/// values of its own. A link is read at StartRender; without one, what isn't on an object is at the sample,
/// unturned, of scale 1 and without extent.
class GetInstanceVector : public trVectorFunction {
 public:
  GetInstanceVector();
  long StartRender(trRenderingInterface& rendering) override;
  trVector VectorValue(trShadingInterface& si) override;

 private:
  /// What `vector` chooses: metres, degrees (X, then Y, then Z), factors, metres.
  enum Vector : long { kPosition = 0, kRotation = 1, kScale = 2, kBoundingSize = 3 };
  trVector OfLinkedObject() const;
  trVector OfShaded(trShadingInterface& si) const;

  long vector_;
  trObjectLink object_;
  trIntHint vectorHint_;
  trVector linked_;
};
