// The project: root of a node graph.
#pragma once

#include "core/node.h"

class trHeightfield;

/// The root node: frames, the active shadable object, and where the project's files lie. Main thread only.
class OV_API juProject : public trBase {
 public:
  juProject();
  ~juProject() override;
  void OnParamChanged(long index, trBase* who) override;

  /// The project that `node` belongs to, or null.
  static juProject* Of(const trBase* node);

  /// The object that shaders take for the ground: normally the planet. Null where there is none.
  trBase* PActiveShadableObject() const { return activeShadableObject_.LinkedNode(); }
  void SetActiveShadableObject(trBase* object);
  /// The camera of the project's first render node, else the first camera; null where there is none.
  trBase* PActiveCameraNode() const;

  /// Shows a heightfield to the user; without a window, tells its size and range on the console.
  void OpenHfView(trHeightfield* heightfield);

  /// Folder against which relative file names are resolved; empty for a project never saved.
  const trString& Folder() const { return folder_; }
  void SetFolder(const trString& folder) { folder_ = folder; }

 private:
  long startFrame_, endFrame_;
  double currentFrame_, framesPerSecond_;
  trNodeLink activeShadableObject_;
  trFile ocioConfig_;
  trString ocioInputSpace_;
  trString folder_;
};

/// One kind of file in a file chooser.
struct juFileFilterItem {
  trString label;
  std::vector<trString> extensions;
};
/// Asks the user for a file. False where nobody picks one: a batch run has nobody to ask. Main thread only.
OV_API bool juChooseFile(const std::vector<juFileFilterItem>& filters, trString& path);
/// Who answers juChooseFile; null for nobody.
using juFileChooser = bool (*)(const std::vector<juFileFilterItem>& filters, trString& path);
OV_API void juSetFileChooser(juFileChooser chooser);

/// Bracket a paste of nodes into the project.
OV_API void PreNodePaste(trBase* parent);
OV_API void PostNodePaste(trBase* parent);
/// Asks whoever shows a 3D preview to draw it again.
OV_API void trRequest3DPreviewUpdate();
