// Nodes and blocks of bytes as XML text.
#pragma once

#include <cstddef>
#include <vector>

#include "core/node.h"

/// Main thread only.
class OV_API trBaseXML {
 public:
  /// The node with its children as an element of a project file, indented by `indent`.
  static trString GetElement(trBase* node, const trString& indent = "");
  /// A clip of several nodes: an `ombrivex_clip` around their elements.
  static trString GetClip(const std::vector<trBase*>& nodes);
  /// Reads a clip's nodes below `parent`; names that are taken get a number. 0 where the text is no clip;
  /// what was read up to there is taken away again.
  static long ReadBuffer(trBase* parent, const trString& text);
};

/// Blocks of bytes as text of an element: a zlib stream in base64, which XML holds as it is. Thread-safe.
class OV_API trXML {
 public:
  /// `level` 0 to 9 is how hard to compress. 0, and no text, where there is no memory.
  static long EncodeBlobForXML(std::size_t bytes, const void* data, trString& result, int level);
  /// The reverse; blanks anywhere in the text mean nothing. 0, and no bytes, where it isn't such text, is cut
  /// short, or holds more than `mostBytes`.
  static long DecodeBlobForXML(const trString& text, std::vector<unsigned char>& result,
                               std::size_t mostBytes);
};
