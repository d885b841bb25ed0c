#include "objectio/obj_writer.h"

#include <charconv>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "core/scene.h"
#include "objectio/blocks.h"
#include "objectio/object_output.h"

namespace {

constexpr char kHeader[] =
    "#\n# Wavefront OBJ file\n# Written by ObjectWriterOBJ for Ombrivex\n# https://www.ombrivex.example\n#\n"
    "g group1\n";
constexpr long kBlock = 8192;
/// Longest line: a letter or two and nine numbers of up to ten digits, or three in %.6g.
constexpr std::size_t kLongestLine = 128;

/// Lines of text, without regard to the locale.
class Lines {
 public:
  explicit Lines(long count)
      : text_(std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(count) * kLongestLine)),
        at_(text_.get()) {}

  void Char(char c) { *at_++ = c; }
  void Index(std::int32_t index) { at_ = std::to_chars(at_, at_ + 16, index).ptr; }
  /// As %.6g.
  void Number(double number) {
    at_ = std::to_chars(at_, at_ + 32, number, std::chars_format::general, 6).ptr;
  }
  void Vector(const char* name, double x, double y, double z) {
    while (*name) Char(*name++);
    for (const double number : {x, y, z}) {
      Char(' ');
      Number(number);
    }
    Char('\n');
  }
  std::string Text() const { return {text_.get(), at_}; }

 private:
  std::unique_ptr<char[]> text_;
  char* at_;
};

void Face(Lines& out, const trTri& tri) {
  out.Char('f');
  for (int i = 0; i < 3; ++i) {
    out.Char(' ');
    out.Index(tri.point[i]);
    if (tri.texVert[i] || tri.normal[i]) out.Char('/');
    if (tri.texVert[i]) out.Index(tri.texVert[i]);
    if (!tri.normal[i]) continue;
    out.Char('/');
    out.Index(tri.normal[i]);
  }
  out.Char('\n');
}

/// The lines of a table, in blocks that follow one another.
template <typename Line>
void AddTable(std::vector<std::string>& text, long count, const Line& line) {
  const std::size_t before = text.size();
  text.resize(before + static_cast<std::size_t>((count + kBlock - 1) / kBlock));
  ForBlocks(count, kBlock, [&](long begin, long end) {
    Lines out(end - begin);
    for (long i = begin; i < end; ++i) line(out, i + 1);
    text[before + static_cast<std::size_t>(begin / kBlock)] = out.Text();
  });
}

}  // namespace

long ObjectWriterOBJ::WriteObject(trScene& scene, trBase*, const trString& path) {
  const trScene* const object = FirstGroup(scene, "ObjectWriterOBJ");
  if (!object) return 0;
  try {
    std::vector<std::string> text{kHeader};
    AddTable(text, object->NumPts(), [object](Lines& out, long i) {
      const trVector& p = object->GetPPoint(i)->position;
      out.Vector("v", p.x, p.y, -p.z);
    });
    AddTable(text, object->NumTexVerts(), [object](Lines& out, long i) {
      const trVector& uvw = object->GetPTexVert(i)->uvw;
      out.Vector("vt", uvw.x, uvw.y, uvw.z);
    });
    AddTable(text, object->NumNormals(), [object](Lines& out, long i) {
      const trVector& n = object->GetPNormal(i)->direction;
      out.Vector("vn", n.x, n.y, -n.z);
    });
    AddTable(text, object->NumTris(), [object](Lines& out, long i) { Face(out, *object->GetPTri(i)); });

    std::size_t size = 0;
    for (const std::string& block : text) size += block.size();
    std::string whole;
    whole.reserve(size);
    for (std::string& block : text) {
      whole += block;
      std::string().swap(block);
    }
    return PutObjectFile("ObjectWriterOBJ", "ObjectWriterOBJ: Unable to open file: " + path, path,
                         whole.data(), whole.size());
  } catch (const std::bad_alloc&) {
    trError("ObjectWriterOBJ: Unable to allocate memory for the file: " + path);
    return 0;
  }
}
