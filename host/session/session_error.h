// What a session throws where it can't do what it is asked.
#pragma once

#include <stdexcept>
#include <string>

namespace ovhost {

/// An empty text means that messages have told why.
class SessionError : public std::runtime_error {
 public:
  enum Kind {
    kFailed,
    kBadRequest,      ///< what was asked for makes no sense, whatever the project
    kInvalidProject,  ///< or a file it needs is missing
    kOutputFailed
  };
  SessionError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind Cause() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace ovhost
