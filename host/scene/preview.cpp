// The data side of previews.
#include "core/preview.h"

#include "host/scene/scene_tables.h"

trBoundingBox juPreviewHandler::BoundingBoxTForInteraction() {
  return ovhost::TransformedBox(TransformForInteraction(), BoundingBoxLForInteraction());
}
