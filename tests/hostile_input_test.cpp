// What reads the world: log lines, memory limits, files that aren't plain.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "host/base/log_text.h"
#include "host/base/memory.h"
#include "host/base/plain_file.h"
#include "tests/temp_file.h"

namespace fs = std::filesystem;

namespace {

TEST(LogText, SpellsWhatSteersATerminal) {
  const struct {
    const char *text, *printable, *json;
  } kCases[] = {
      {"Berg \xc3\xa9\xe2\x9b\xb0 \xf0\x9f\x8f\x94", "Berg \xc3\xa9\xe2\x9b\xb0 \xf0\x9f\x8f\x94",
       "\"Berg \xc3\xa9\xe2\x9b\xb0 \xf0\x9f\x8f\x94\""},
      {"a\nerror: b\x1b[2J\t\x7f", R"(a\nerror: b\x1b[2J\t\x7f)",
       R"("a\u000aerror: b\u001b[2J\u0009\u007f")"},
      {"\xc2\x9b"
       "1m",
       R"(\x9b1m)", R"("\u009b1m")"},
      {"exe.\xe2\x80\xaegnp \xe2\x81\xa6 \xd8\x9c", R"(exe.\u202egnp \u2066 \u061c)",
       R"("exe.\u202egnp \u2066 \u061c")"},
      // Overlong, a surrogate, beyond Unicode, cut short.
      {"\xc0\x8a \xed\xa0\x80 \xf5\x80", R"(\xc0\x8a \xed\xa0\x80 \xf5\x80)",
       R"("\ufffd\ufffd \ufffd\ufffd\ufffd \ufffd\ufffd")"},
      {"\xe2\x80", R"(\xe2\x80)", R"("\ufffd\ufffd")"},
      {R"(C:\ "x")", R"(C:\ "x")", R"("C:\\ \"x\"")"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(ovhost::PrintableText(c.text, 1000), c.printable);
    EXPECT_EQ(ovhost::QuotedForJson(c.text, 1000), c.json);
  }
  const std::string longText(100000, 'x');
  EXPECT_EQ(ovhost::PrintableText(longText, 100), std::string(100, 'x') + "... (99900 bytes more)");
  EXPECT_LT(ovhost::QuotedForJson(longText, 100).size(), 150u);
}

/// A tree of control groups as the kernel shows it.
class ControlGroups {
 public:
  ControlGroups() : root_(TempFile("groups")) { fs::remove_all(root_); }
  void Write(const std::string& path, const std::string& text) const {
    fs::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << text;
  }
  /// Mounts of version 1, with the memory controller, and of version 2.
  void Mount(const std::string& root1, const std::string& root2) const {
    Write("proc/mountinfo", "20 1 0:1 / / rw - ext4 /dev/sda1 rw\n31 20 0:2 " + root1 + " " + At("v1") +
                                " rw,relatime shared:9 - cgroup cgroup rw,memory\n32 20 0:3 " + root2 + " " +
                                At("v2") + " rw,relatime - cgroup2 cgroup rw,nsdelegate\n");
  }
  std::string At(const std::string& path) const { return (root_ / path).string(); }
  std::uint64_t Left() const { return ovhost::ControlGroupMemory(At("proc")); }

 private:
  fs::path root_;
};

TEST(FreeMemory, KnowsTheLimitsOfControlGroups) {
  constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();
  const ControlGroups groups;
  EXPECT_EQ(groups.Left(), kNone);
  groups.Mount("/", "/");
  groups.Write("proc/cgroup", "5:cpu:/x\n4:hugetlb,memory:/slice/job\n0::/slice/job\n");
  EXPECT_EQ(groups.Left(), kNone);

  // The limit of a group above counts; what is cached doesn't.
  groups.Write("v2/slice/job/memory.max", "max\n");
  groups.Write("v2/slice/job/memory.high", "max\n");
  EXPECT_EQ(groups.Left(), kNone);
  groups.Write("v2/slice/memory.max", "1000000\n");
  groups.Write("v2/slice/memory.current", "700000\n");
  groups.Write("v2/slice/memory.stat", "anon 400000\nactive_file 50000\ninactive_file 100000\n");
  EXPECT_EQ(groups.Left(), 450000u);
  groups.Write("v2/slice/job/memory.high", "300000\n");
  groups.Write("v2/slice/job/memory.current", "290000\n");
  EXPECT_EQ(groups.Left(), 10000u);

  groups.Write("v1/slice/job/memory.limit_in_bytes", "600000\n");
  groups.Write("v1/slice/job/memory.usage_in_bytes", "599000\n");
  groups.Write("v1/slice/job/memory.stat", "active_file 9\ntotal_inactive_file 1000\n");
  EXPECT_EQ(groups.Left(), 2000u);
  // Used up is nothing left.
  groups.Write("v1/slice/job/memory.usage_in_bytes", "700000\n");
  EXPECT_EQ(groups.Left(), 0u);

  // A container sees its own part of the hierarchy mounted.
  groups.Write("proc/cgroup", "4:memory:/docker/abc\n");
  groups.Mount("/docker/abc", "/");
  groups.Write("v1/memory.limit_in_bytes", "5000\n");
  groups.Write("v1/memory.usage_in_bytes", "1000\n");
  EXPECT_EQ(groups.Left(), 4000u);
}

TEST(PlainFile, WaitsForNobody) {
  const std::string pipe = TempFile("pipe"), file = TempFile("plain");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::ofstream(file) << "text";
  std::string text, problem;
  EXPECT_TRUE(ovhost::ReadPlainFile(file, 4, text, problem));
  EXPECT_EQ(text, "text");
  for (const std::string& path : {pipe, TempFile(""), std::string("/dev/zero"), TempFile("missing")}) {
    problem.clear();
    EXPECT_FALSE(ovhost::ReadPlainFile(path, 1000, text, problem)) << path;
    EXPECT_FALSE(problem.empty());
  }
  EXPECT_FALSE(ovhost::ReadPlainFile(file, 3, text, problem));
}

}  // namespace
