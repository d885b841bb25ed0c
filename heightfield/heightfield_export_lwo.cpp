// heightfield_export_LWO.
#include "heightfield/heightfield_export_lwo.h"

#include <algorithm>
#include <cmath>

#include "objectio/lwo_writer.h"

HeightfieldExportLWO_Button::HeightfieldExportLWO_Button(HeightfieldExportLWO* node)
    : trGuiPushButton(node, "Export Now"), node_(node) {}

long HeightfieldExportLWO_Button::OnPressed() {
  if (trBase* parent = node_->Parent()) parent->PreChildStateChange(node_, "OnClick " + label);
  return node_->Export();
}

HeightfieldExportLWO::HeightfieldExportLWO() {
  fileHint_.AddFileFilter("LWO object", "lwo");
  Param(filename_, "filename", "", &fileHint_)
      .About("LWO file that the button writes the heightfield to, two triangles for each cell.");
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(exportButton_, "export_button");
  Gui(trGuiButtonRowClose);
}

long HeightfieldExportLWO::Compute(trHeightfield* input) {
  HfSetScaleEnabled(0);
  return input ? CopyRows(*input) : MakeFlat(*this);
}

long HeightfieldExportLWO::Export() {
  const trScopedErrorsWarningsContext context(this);
  const trHeightfieldTurn turn;
  trHeightfield* const input = HfInput();
  if (!input || !(input->HfOperateTS() & 1) || !HasPoints(input)) {
    trError("There is no heightfield to export.");
    return 0;
  }
  const trString path = filename_.FullPath();
  if (path.empty()) {
    trError("There is no name of a file to write.");
    return 0;
  }
  const trString text = "Writing LWO file: " + path;
  unsigned long token = 0;
  if (!ReportProgress(token, text, 0.0f, -1.0f)) return 0;

  const std::int64_t width = input->width, across = width - 1, along = input->height - 1;
  const double xScale = input->HfXScale(), yScale = input->HfYScale(), zScale = input->HfZScale();
  LwoMesh mesh;
  mesh.numPoints = width * input->height;
  mesh.numTriangles = 2 * across * along;
  mesh.point = [=](std::int64_t i) {
    const std::int64_t column = i % width, row = i / width;
    const float height = input->HfScanlineRaw(static_cast<int>(row))[column];
    return trVector(static_cast<double>(column) * xScale,
                    (std::isfinite(height) ? height : input->HfMinZ()) * zScale,
                    static_cast<double>(row) * yScale);
  };
  // Two triangles a cell, both from its corner of least x and z, their front upwards.
  mesh.triangle = [=](std::int64_t i) {
    const std::int64_t cell = i / 2, corner = cell / across * width + cell % across;
    const std::int64_t opposite = corner + width + 1;
    if (i % 2 == 0) return std::array<std::int64_t, 3>{corner, opposite, corner + width};
    return std::array<std::int64_t, 3>{corner, corner + 1, opposite};
  };
  const long result = WriteLwo(mesh, path);
  ReportProgress(token, text, 1.0f, -1.0f);
  return result;
}
