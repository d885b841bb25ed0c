// A render as everybody needs it, whether it ends in files, a window or a test: it knows no file.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/micro_handler.h"
#include "core/project.h"
#include "host/image/deep_picture.h"
#include "host/image/picture.h"
#include "host/render/frame/render_plan.h"
#include "host/render/frame/render_settings.h"

namespace ovhost {

struct SessionContext;

/// Reports what ended a render, and returns what became of it: kMemoryLimit or kFailed. Thread-safe.
RenderOutcome ReportFailure(const std::exception& problem);

/// One frame of a project, rendered pass by pass. Each pass leaves a usable picture; what was done can be
/// saved and gone on with, here or elsewhere, to the same bytes. Works for the session that is current where
/// it is made, whose messages and progress (with the render node as context) tell of it. While it is
/// prepared, the project's nodes are changed through it alone. One thread at a time; uses workers of its own.
class OV_API RenderJob {
 public:
  /// `control` is looked at in all long work.
  RenderJob(juProject& project, const RenderJobSettings& settings, RenderControl& control);
  ~RenderJob();
  RenderJob(const RenderJob&) = delete;
  RenderJob& operator=(const RenderJob&) = delete;

  /// Makes what is to be rendered, as far as it isn't made or a change has made it old. kDone, kStopped,
  /// kFailed or kMemoryLimit.
  RenderOutcome Prepare();
  /// Takes one more round of samples, or goes on with one that was paused. kDone also for a pass that a pause
  /// cut short; kStopped where nothing more is to be done now. Prepares first where that is necessary.
  RenderOutcome RunPass();
  /// Whether all samples are there, or as many as the noise asks for.
  bool IsDone();
  /// 0 to 1, of the samples.
  double FractionDone();
  const RenderStatistics& Statistics() const { return statistics_; }

  /// The diced surface of what was prepared, and empty before that.
  trMicroSurface DicedSurface() const;

  /// The picture so far, linear: colour, alpha, and the settings' layers. Denoised where that is asked for.
  /// Empty before Prepare.
  Picture Image();
  /// The depths of that picture's pixels where the settings ask for them, else null. Until the next pass or
  /// change.
  const DeepPixels* Deep() const;
  /// The channels of one layer of Image() alone, "beauty" for colour and alpha; empty where there is no such
  /// layer.
  Picture Layer(const std::string& name);
  /// How Displayed() shows them.
  const ViewTransform& Transform();

  /// Writes what was done; false where `write` is, which ends it.
  using Writer = std::function<bool(const void* data, std::uint64_t size)>;
  bool Save(const Writer& write);
  /// Takes up what was saved. `read` fills all of the data or is false.
  using Reader = std::function<bool(void* data, std::uint64_t size)>;
  enum class Resumed {
    kLoaded,
    kOther,   ///< of another scene, frame, size or engine
    kDamaged  ///< or nothing that was saved
  };
  Resumed Resume(const Reader& read);
  /// Of a saved job's beginning: whether Resume would take it.
  bool IsOfThisJob(const Reader& read) const;
  /// Whether saved samples are more than the settings ask for.
  bool HasMoreThanAsked() const;

  /// Changes parameters of one node by `change`, which returns whether it did, and forgets what they made.
  /// What is returned is redone by the next Prepare.
  Redo Change(trBase& node, const std::function<bool()>& change);
  Redo SetParam(trBase& node, const char* name, const trParamValue& value, trBase* who = trWhoUser);
  /// Before nodes are changed in any other way (made, destroyed, linked by other hands): forgets what depends
  /// on them.
  void Forget(Redo what);

 private:
  struct State;
  std::unique_ptr<State> state_;
  RenderStatistics statistics_;
};

}  // namespace ovhost
