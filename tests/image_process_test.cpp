// Pictures made from pictures: cut out, resized, recoded; sequences; names that can't be.
#include <cmath>
#include <filesystem>
#include <fstream>

#include "core/image.h"
#include "core/image_process.h"
#include "host/image/picture.h"
#include "host/project/project_file.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"
#include "tools/image_file_processor.h"

namespace {

/// A linear picture whose red grows to the east and whose green grows to the north.
std::string MakePicture(const std::string& name, int width, int height, bool hasAlpha = false) {
  ovhost::Picture picture;
  picture.width = picture.fullWidth = width;
  picture.height = picture.fullHeight = height;
  picture.channels = {"R", "G", "B"};
  if (hasAlpha) picture.channels.emplace_back("A");
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const float alpha = hasAlpha && x < width / 2 ? 0.0f : 1.0f;
      const float red = (x + 0.5f) / static_cast<float>(width),
                  up = (height - y - 0.5f) / static_cast<float>(height);
      picture.pixels.insert(picture.pixels.end(), {red * alpha, up * alpha, 0.25f * alpha});
      if (hasAlpha) picture.pixels.push_back(alpha);
    }
  const std::string path = TempFile(name);
  EXPECT_EQ(ovhost::WritePicture(path, picture, {0, false}, true), "");
  return path;
}

trFCol PixelOf(const std::string& path, int x, int y) {
  trImage image;
  EXPECT_TRUE(image.ReadFile(path, nullptr)) << path;
  return image.FColFromPixel(image.PixelAt(x, y));
}

TEST(ImageProcess, CropsResizesAndBrightens) {
  const std::string from = MakePicture("from.exr", 64, 32), to = TempFile("to.exr");
  trImageChange change;
  change.fullFloat = true;
  change.crops = true;
  change.left = 16, change.right = 47, change.bottom = 8, change.top = 1000;
  ASSERT_EQ(trProcessImageFile(from, to, change), "");
  trImage image;
  ASSERT_TRUE(image.ReadFile(to, nullptr));
  EXPECT_EQ(image.width, 32);
  EXPECT_EQ(image.height, 24);
  EXPECT_NEAR(PixelOf(to, 3, 5).r, 19.5 / 64, 1e-6);
  EXPECT_NEAR(PixelOf(to, 3, 5).g, 13.5 / 32, 1e-6);
  // Ramps stay ramps at any size, away from the edges; a stop doubles them.
  for (const auto& [w, h] : {std::pair(8, 8), {16, 0}, {128, 64}}) {
    change = {};
    change.fullFloat = change.resizes = true;
    change.width = w, change.height = h;
    change.exposureStops = 1;
    ASSERT_EQ(trProcessImageFile(from, to, change), "");
    trImage resized;
    ASSERT_TRUE(resized.ReadFile(to, nullptr));
    EXPECT_EQ(resized.width, w);
    EXPECT_EQ(resized.height, h > 0 ? h : 8);
    for (int x = w / 4; x < w - w / 4; ++x)
      EXPECT_NEAR(PixelOf(to, x, resized.height / 2).r, 2 * (x + 0.5) / w, 1e-3) << w << " " << x;
  }
}

TEST(ImageProcess, RecodesLightByTheFormat) {
  const std::string linear = MakePicture("light.exr", 16, 16), png = TempFile("coded.png"),
                    back = TempFile("back.exr");
  ASSERT_EQ(trProcessImageFile(linear, png, {}), "");
  const double red = 8.5 / 16, coded = 1.055 * std::pow(red, 1 / 2.4) - 0.055;
  EXPECT_NEAR(PixelOf(png, 8, 3).r, coded, 0.003);
  ASSERT_EQ(trProcessImageFile(png, back, {}), "");
  EXPECT_NEAR(PixelOf(back, 8, 3).r, red, 0.005);
  // The same numbers taken as they are.
  trImageChange change;
  change.coding = trLightCoding::kLinear;
  ASSERT_EQ(trProcessImageFile(png, back, change), "");
  EXPECT_NEAR(PixelOf(back, 8, 3).r, coded, 0.004);
  // A file onto itself.
  const auto before = PixelOf(png, 2, 2);
  ASSERT_EQ(trProcessImageFile(png, png, {}), "");
  EXPECT_EQ(PixelOf(png, 2, 2).r, before.r);
}

TEST(ImageProcess, ClearPixelsLendNoColour) {
  const std::string from = MakePicture("clear.exr", 32, 8, true), to = TempFile("clear.tif");
  trImageChange change;
  change.resizes = true;
  change.width = 5, change.height = 2;
  ASSERT_EQ(trProcessImageFile(from, to, change), "");
  trImage image;
  ASSERT_TRUE(image.ReadFile(to, nullptr));
  const trF4Col middle = image.F4ColFromPixel(image.PixelAt(2, 0));
  EXPECT_NEAR(middle.a, 0.5, 0.15);
  EXPECT_GT(middle.r, 0.7) << "of the opaque half alone, which is at least half red";
}

TEST(ImageProcess, WhatCantBeDoneIsSaid) {
  const std::string from = MakePicture("small.exr", 8, 8);
  trImageChange nothing, huge, outside;
  nothing.resizes = huge.resizes = outside.crops = true;
  huge.width = 1000000000, huge.height = 5;
  outside.left = 9, outside.right = 90, outside.top = 90;
  EXPECT_NE(trProcessImageFile(from, TempFile("a.exr"), nothing), "");
  EXPECT_NE(trProcessImageFile(from, TempFile("a.exr"), huge), "");
  EXPECT_NE(trProcessImageFile(from, TempFile("a.exr"), outside), "");
  EXPECT_NE(trProcessImageFile(from, TempFile("a.doc"), {}), "");
  EXPECT_NE(trProcessImageFile(TempFile("absent.exr"), TempFile("a.exr"), {}), "");
  EXPECT_NE(trProcessImageFile(from, TempFile("no/such/folder/a.exr"), {}), "");
  EXPECT_FALSE(std::filesystem::exists(TempFile("a.exr")));
}

TEST(ImageFileProcessor, WritesEachFrameOfASequence) {
  for (const char* name : {"shot.007.exr", "shot.008.exr", "shot.009.exr"}) MakePicture(name, 8, 4);
  ImageFileProcessor node;
  node.SetParam("input_file", TempFile("shot.###.exr"), trWhoUser);
  node.SetParam("output_file", TempFile("small.#.png"), trWhoUser);
  node.SetParam("image_sequence", 1, trWhoUser);
  node.SetParam("start_frame", 7, trWhoUser);
  node.SetParam("end_frame", 9, trWhoUser);
  node.SetParam("resize", 1, trWhoUser);
  node.SetParam("size_in_pixels", tr2Vector(4, 0), trWhoUser);
  EXPECT_EQ(node.Process(), 1);
  for (const char* name : {"small.7.png", "small.8.png", "small.9.png"}) {
    trImage image;
    ASSERT_TRUE(image.ReadFile(TempFile(name), nullptr));
    EXPECT_EQ(image.height, 2);
  }
  // One name for all of them would leave the last alone.
  node.SetParam("output_file", TempFile("one.png"), trWhoUser);
  EXPECT_EQ(node.Process(), 0);
  EXPECT_FALSE(std::filesystem::exists(TempFile("one.png")));
}

TEST(OvvNodePack, StaysAsItWas) {
  Graph graph;
  const std::string pack =
      "<package_of_ovv_nodes name=\"a &lt; &quot;b&quot;\"><node value=\"1 2\"/> loose &amp; text\n"
      "\t<deep><deeper>x]]&gt;</deeper></deep></package_of_ovv_nodes>";
  const auto project = ovhost::ProjectFromText("<ombrivex_project><ovv_node_pack name=\"P\"><custom>\n  " +
                                                   pack + "\n</custom></ovv_node_pack></ombrivex_project>",
                                               "pack");
  ASSERT_TRUE(project);
  const std::string once = ovhost::ProjectToText(*project);
  EXPECT_NE(once.find(pack), std::string::npos) << once;
  const auto again = ovhost::ProjectFromText(once, "again");
  ASSERT_TRUE(again);
  EXPECT_EQ(ovhost::ProjectToText(*again), once);
}

}  // namespace
