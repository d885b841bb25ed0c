// Foreign bytes as a checkpoint: as they come, and with the head and the checksum that a forger would have
// put right, as a film and as a render job that goes on from it.
#include <cstring>
#include <string>

#include "host/project/project_file.h"
#include "host/render/frame/film_state.h"
#include "host/render/frame/render_job.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr int kWidth = 40, kHeight = 3;

/// Reads text from its beginning.
ovhost::ByteReader Reader(const std::string& bytes) {
  return [&bytes, at = std::size_t{0}](void* data, std::uint64_t size) mutable {
    if (size > bytes.size() - at) return false;
    std::memcpy(data, bytes.data() + at, size);
    at += size;
    return true;
  };
}

ovhost::ByteWriter Writer(std::string& bytes) {
  return [&bytes](const void* data, std::uint64_t size) {
    bytes.append(static_cast<const char*>(data), size);
    return true;
  };
}

/// FNV-1a (Fowler, Noll and Vo 1991) over 8-byte words, then the bytes that are left.
void Mix(std::uint64_t& hash, const std::string& bytes) {
  constexpr std::uint64_t kPrime = 0x100000001b3ull;
  std::size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes.data() + i, 8);
    hash = (hash ^ word) * kPrime;
  }
  for (; i < bytes.size(); ++i) hash = (hash ^ static_cast<unsigned char>(bytes[i])) * kPrime;
}

/// What is to come of reading bytes: a forgery is taken for true unless it counts beyond all sense.
enum class Expected { kAnything, kTaken, kRefused };

/// The bytes in place of what such a state holds behind its head.
std::string Forged(const std::string& bytes, const std::string& real, Expected& expected) {
  constexpr std::size_t kCounts = (kWidth + ovhost::Film::kTileSize - 1) / ovhost::Film::kTileSize * 4,
                        kPixels = kWidth * kHeight * 4;
  const std::size_t head = (real.size() - kCounts) % kPixels;
  std::string forged = real;
  for (std::size_t i = 0; head + i < forged.size() && i < bytes.size(); ++i) forged[head + i] = bytes[i];
  std::uint64_t hash = 0xcbf29ce484222325ull;
  Mix(hash, forged.substr(head, kCounts));
  Mix(hash, forged.substr(head + kCounts));
  std::memcpy(forged.data() + head - 8, &hash, 8);
  expected = Expected::kTaken;
  for (std::size_t i = 3; i < kCounts; i += 4)
    if (forged[head + i] & 0x80) expected = Expected::kRefused;
  return forged;
}

template <typename State>
void CheckState(State state, State taken, Expected expected) {
  Check(expected == Expected::kAnything || (state == taken) == (expected == Expected::kTaken));
}

/// A film that was taken up is written to the bytes that it came from.
void AsFilm(const std::string& bytes, Expected expected) {
  ovhost::FilmKey key;
  key.scene = 7;
  ovhost::Film film({0, 0, kWidth, kHeight}, kWidth, kHeight, {"samples"});
  const ovhost::FilmState state = ovhost::ReadFilm(Reader(bytes), key, film);
  CheckState(state, ovhost::FilmState::kLoaded, expected);
  Check(ovhost::IsFilmOf(Reader(bytes), key, film) || state != ovhost::FilmState::kLoaded);
  if (state == ovhost::FilmState::kLoaded) {
    std::string again;
    Check(ovhost::WriteFilm(Writer(again), key, film));
    Check(bytes.compare(0, again.size(), again) == 0);
  }
  Check(film.MakePicture().pixels.size() > 0);
  for (int tile = 0; tile < film.NumTiles(); ++tile) static_cast<void>(film.TileNoise(tile));
  static_cast<void>(film.MeanVariance());
}

std::string RealFilm() {
  ovhost::FilmKey key;
  key.scene = 7;
  std::string bytes;
  ovhost::WriteFilm(Writer(bytes), key, ovhost::Film({0, 0, kWidth, kHeight}, kWidth, kHeight, {"samples"}));
  return bytes;
}

juProject& Project() {
  static const auto project = ovhost::ProjectFromText(
      "<ombrivex_project><camera name=\"Camera\"/><render name=\"Render\"/></ombrivex_project>", "fuzz.ovd");
  return *project;
}

ovhost::RenderJobSettings Settings() {
  ovhost::RenderJobSettings settings;
  settings.width = kWidth;
  settings.height = kHeight;
  settings.samples = 4;
  settings.threads = 1;
  settings.memoryBytes = 1 << 30;
  settings.sceneKey = 7;
  return settings;
}

/// What a job with nothing done saves, once it has looked for what was.
std::string RealJob() {
  ovhost::RenderControl control;
  ovhost::RenderJob job(Project(), Settings(), control);
  std::string bytes;
  Check(job.Resume(Reader(bytes)) == ovhost::RenderJob::Resumed::kDamaged);
  Check(job.Save(Writer(bytes)));
  return bytes;
}

/// A job goes on from what it was given, and to its end where that was taken.
void AsJob(const std::string& bytes, Expected expected) {
  ovhost::RenderControl control;
  ovhost::RenderJob job(Project(), Settings(), control);
  const auto resumed = job.Resume(Reader(bytes));
  CheckState(resumed, ovhost::RenderJob::Resumed::kLoaded, expected);
  const double done = job.FractionDone();
  Check(done >= 0 && done <= 1);
  static_cast<void>(job.HasMoreThanAsked());
  Check(job.Statistics().samplesDone >= 0);
  if (resumed != ovhost::RenderJob::Resumed::kLoaded) return;
  for (int pass = 0; !job.IsDone(); ++pass) {
    Check(pass < 10);
    Check(job.RunPass() == ovhost::RenderOutcome::kDone);
  }
  std::string saved;
  Check(job.Save(Writer(saved)));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SilenceLog();
  ovhost::RegisterHostClasses();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string film = RealFilm(), job = RealJob();
  const std::string bytes = InputText(data, size);
  Expected expected;
  AsFilm(bytes, Expected::kAnything);
  AsJob(bytes, Expected::kAnything);
  const std::string forgedFilm = Forged(bytes, film, expected);
  AsFilm(forgedFilm, expected);
  const std::string forgedJob = Forged(bytes, job, expected);
  AsJob(forgedJob, expected);
  return 0;
}
