// A heightfield as a mesh for other programs.
#pragma once

#include "heightfield/operator.h"

class HeightfieldExportLWO;

/// Writes the file.
class HeightfieldExportLWO_Button : public trGuiPushButton {
 public:
  explicit HeightfieldExportLWO_Button(HeightfieldExportLWO* node);
  long OnPressed() override;

 private:
  HeightfieldExportLWO* node_;
};

/// `heightfield_export_LWO`: passes its input on; the button writes it, metres along all axes, x and z from
/// the first grid point on.
class HeightfieldExportLWO : public OrdinaryOperator {
 public:
  HeightfieldExportLWO();
  /// Writes the input's grid to the file; 0 with an error where it can't. Main thread only.
  long Export();

 protected:
  long Compute(trHeightfield* input) override;

 private:
  trFile filename_;
  trLinkHint fileHint_;
  HeightfieldExportLWO_Button exportButton_{this};
};
