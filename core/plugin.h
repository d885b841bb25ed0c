// What a module calls at start-up.
#pragma once

#include "core/node.h"

/// The version of these headers. A module built for another is refused.
inline constexpr unsigned int kOvSdkVersion = 40530;

struct trPluginStartupInfo;

class OV_API trPluginSdkVersion {
 public:
  void PrivateInit() { version_ = 0; }
  void SetVersion(unsigned int version) { version_ = version; }
  unsigned int Version() const { return version_; }

 private:
  unsigned int version_ = 0;
};

/// An open registration. Main thread only.
class OV_API trPluginToken {
 public:
  trPluginToken(trPluginStartupInfo* info, const trPluginSdkVersion& version, const char* token);
  /// Adds a class to the pool: 1, or 0 when the module was refused or the entry is no good. A second entry of
  /// a name in another category lists the class there as well.
  long AddClass(const trString& category, const trString& className, trBase* (*create)(),
                void (*destroy)(trBase*), const trString& reserved);

 private:
  trPluginStartupInfo* info_;
};

/// All node classes by registered name. Main thread only.
class OV_API trClassPool {
 public:
  /// Makes projects that name `oldName` create the class registered as `newName`.
  void AddClassNameRedirect(const trString& oldName, const trString& newName);
};
extern OV_API trClassPool trClasses;

/// The one template behind all create and destroy functions.
template <typename T>
trBase* trCreateNode() {
  return new T;
}
inline void trDestroyNode(trBase* node) { delete node; }

/// The module's one exported function. It returns 1.
extern "C" OV_API long trPluginStartup(trPluginStartupInfo* info);
