#include "objectio/ovo_file.h"

#include <zlib.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <unordered_map>

namespace {

/// Deflate gives no more than this many bytes for one: who claims more lies.
constexpr std::uint64_t kMostRatio = 1032;
/// Honest geometry packs to a third or a tenth; what packs far better and is large is a trap.
constexpr std::uint64_t kHonestRatio = 256, kHarmlessBytes = 64 << 20;

class Walk {
 public:
  Walk(OvoVisitor& visitor, const trString& path) : visitor_(visitor), path_(path) {}

  void Chunks(OvoBytes bytes, bool mayBePacked) {
    OvoCursor from(bytes);
    for (OvoChunk chunk; TakeOvoChunk(from, chunk);) {
      isCut = isCut || !chunk.isWhole;
      if (chunk.id == "GGRP") {
        visitor_.Group(chunk.payload);
      } else if (chunk.id == "SHAD") {
        visitor_.Shader(chunk.payload, chunk.isWhole);
      } else if (chunk.id == "NODE") {
        visitor_.Nodes(chunk.payload, chunk.isWhole);
      } else if (chunk.id == "COMP" && mayBePacked) {
        Packed(chunk.payload);
      }
    }
  }

  bool isCut = false;

 private:
  void Packed(OvoBytes payload) {
    OvoCursor from(payload);
    std::uint32_t mode, size, reserved;
    if (!from.TakeWord(mode)) return;
    if (mode == 0) return Chunks(from.Take(from.Left()), false);
    if (mode != 1 || !from.TakeWord(size) || !from.TakeWord(reserved)) return;
    const OvoBytes packed = from.Take(from.Left());
    if (size > kMostRatio * (packed.size() + 1)) return;
    if (size > kHarmlessBytes && size > kHonestRatio * packed.size()) {
      trError("OVOReader: " + std::to_string(packed.size()) + " packed bytes are said to hold " +
              std::to_string(size) + ", which no object does; they are left out: " + path_);
      return;
    }
    const auto unpacked = std::make_unique_for_overwrite<unsigned char[]>(size);
    uLongf got = size;
    if (uncompress(unpacked.get(), &got, packed.data(), static_cast<uLong>(packed.size())) != Z_OK ||
        got < size)
      return;
    Chunks({unpacked.get(), size}, false);
  }

  OvoVisitor& visitor_;
  const trString& path_;
};

}  // namespace

trString WalkOvo(OvoBytes file, const trString& path, OvoVisitor& visitor, bool& isCut) {
  OvoCursor from(file);
  const auto isNext = [&from](std::string_view text) {
    const OvoBytes bytes = from.Take(text.size());
    return std::equal(bytes.begin(), bytes.end(), text.begin(), text.end());
  };
  if (!isNext(kOvoMagic)) return "OVOReader: The geometry file is not a valid Ombrivex Object (OVO) file";
  if (!isNext("DATA")) return "OVOReader: Could not find DATA marker in object file " + path;
  std::uint32_t offset;
  if (!from.TakeWord(offset)) return "An error occurred while reading the object file.";
  if (offset > file.size() - from.Left()) {
    const OvoBytes tag = from.Take(4);
    if (tag.empty() || (tag[0] != 'A' && tag[0] != 'C'))
      return "OVOReader: The file uses an encoding that cannot be read by this version of Ombrivex.";
  }
  Walk walk(visitor, path);
  if (offset <= file.size())
    walk.Chunks(file.subspan(offset), true);
  else
    walk.isCut = true;
  isCut = walk.isCut;
  return {};
}

// ---------------------------------------------------------------------------------------------------------------

struct OvoGeometry::GroupState {
  long points, texVerts, normals;
  std::int32_t firstMaterial = 0;  ///< 0 for none yet
  std::unordered_map<std::uint32_t, std::int32_t> materials;

  void Enter(std::uint32_t id, long index) {
    materials.emplace(id, static_cast<std::int32_t>(index));
    if (!firstMaterial) firstMaterial = static_cast<std::int32_t>(index);
  }
};

void OvoGeometry::Group(OvoBytes bytes) {
  GroupState group{scene_.NumPts(), scene_.NumTexVerts(), scene_.NumNormals(), 0, {}};
  OvoCursor from(bytes);
  for (OvoChunk chunk; TakeOvoChunk(from, chunk);) {
    if (chunk.id == "MATS") {
      Materials(chunk.payload, group);
    } else if (chunk.id == "PNTS") {
      Records(chunk.payload, 12, [&](const unsigned char* at) { return scene_.AddPoint({Swapped(at)}); });
    } else if (chunk.id == "TUVS") {
      Records(chunk.payload, 8, [&](const unsigned char* at) {
        return scene_.AddTexVert({{Number(at), Number(at + 4), 0}});
      });
    } else if (chunk.id == "TXVS") {
      Records(chunk.payload, 12, [&](const unsigned char* at) { return scene_.AddTexVert({Swapped(at)}); });
    } else if (chunk.id == "NRMS") {
      Records(chunk.payload, 12, [&](const unsigned char* at) { return scene_.AddNormal({Swapped(at)}); });
    } else if (chunk.id == "TRIS") {
      Triangles(chunk.payload, group);
    }
  }
}

template <typename Add>
void OvoGeometry::Records(OvoBytes bytes, std::size_t size, const Add& add) {
  for (std::size_t at = 0; bytes.size() - at >= size; at += size)
    if (!add(bytes.data() + at)) return;
}

double OvoGeometry::Number(const unsigned char* at) {
  const float number = OvoFloat(at);
  if (std::isfinite(number)) return number;
  hadStrangeNumbers_ = true;
  return 0;
}

trVector OvoGeometry::Swapped(const unsigned char* at) {
  return {Number(at), Number(at + 8), Number(at + 4)};
}

void OvoGeometry::Materials(OvoBytes bytes, GroupState& group) {
  OvoCursor from(bytes);
  for (std::uint32_t length, id; from.TakeWord(length) && from.TakeWord(id);) {
    trMaterial material = pattern_;
    material.id = static_cast<std::int32_t>(id);
    material.name.clear();
    if (length > 4) {
      const auto* const begin = reinterpret_cast<const char*>(from.At());
      const auto* const end = static_cast<const char*>(std::memchr(begin, 0, from.Left()));
      const std::size_t size = end ? static_cast<std::size_t>(end - begin) : from.Left();
      material.name.assign(begin, size);
      from.Take(size + 1);
    }
    from.Take((4 - length % 4) % 4);
    const long index = scene_.AddMaterial(material);
    if (!index) return;
    group.Enter(id, index);
  }
}

void OvoGeometry::Triangles(OvoBytes bytes, GroupState& group) {
  if (!group.firstMaterial)
    group.Enter(static_cast<std::uint32_t>(pattern_.id), scene_.AddMaterial(pattern_));
  OvoCursor from(bytes);
  from.Take(4);  // their number, which the chunk's size tells as well
  const OvoBytes descriptor = from.Take(2 * kOvoDescriptorPairs);
  if (descriptor.size() < 2 * kOvoDescriptorPairs) return;

  // Fields stand in a fixed order, whatever the descriptor's; unknown ones follow them.
  std::size_t stride = 0;
  bool hasPoints = false, hasTexVerts = false, hasNormals = false, hasMaterial = false;
  for (std::size_t i = 0; i < descriptor.size(); i += 2) {
    const unsigned char tag = descriptor[i];
    if (tag == 0 || tag == ' ') continue;
    stride += descriptor[i + 1];
    hasPoints |= tag == 'P';
    hasTexVerts |= tag == 'U';
    hasNormals |= tag == 'N';
    hasMaterial |= tag == 'M';
  }
  if (stride == 0) return;
  stride = std::max<std::size_t>(stride, 12 * (hasPoints + hasTexVerts + hasNormals) + 4 * hasMaterial);

  const auto takeCorners = [this](const unsigned char*& at, bool isThere, std::int32_t* corners, long before,
                                  long count) {
    if (!isThere) return true;
    for (int i = 0; i < 3; ++i) {
      const std::uint32_t index = OvoWord(at + 4 * i);
      if (index > static_cast<std::uint64_t>(count - before)) return false;
      corners[reverse_ ? 2 - i : i] = index ? static_cast<std::int32_t>(before + index) : 0;
    }
    at += 12;
    return true;
  };
  const long points = scene_.NumPts(), texVerts = scene_.NumTexVerts(), normals = scene_.NumNormals();
  std::uint32_t lastId = 0;
  std::int32_t lastMaterial = 0;  // of that id; 0 before the first
  trTri tri;
  tri.material = group.firstMaterial;
  while (from.Left() >= stride) {
    const unsigned char* at = from.Take(stride).data();
    const bool areThere = takeCorners(at, hasPoints, tri.point, group.points, points) &&
                          takeCorners(at, hasTexVerts, tri.texVert, group.texVerts, texVerts) &&
                          takeCorners(at, hasNormals, tri.normal, group.normals, normals);
    if (areThere && hasMaterial) {
      const std::uint32_t id = OvoWord(at);
      if (!lastMaterial || id != lastId) {
        const auto found = group.materials.find(id);
        lastMaterial = found == group.materials.end() ? group.firstMaterial : found->second;
        lastId = id;
      }
      tri.material = lastMaterial;
    }
    if (!areThere || !scene_.AddTri(tri)) {
      lacksTriangles_ = true;
      return;
    }
  }
}
