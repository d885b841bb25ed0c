// The distance of optimal string alignment (Damerau 1964).
#include "host/base/nearest_word.h"

#include <algorithm>
#include <cctype>

#include "host/base/log_text.h"

namespace ovhost {
namespace {

/// Longer words are nobody's slip, and would take long to compare.
constexpr size_t kLongest = 64;

std::string InSmallLetters(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

size_t Slips(const std::string& a, const std::string& b) {
  // Rows of the table: of the letter before the last, of the last, and of this one.
  size_t rows[3][kLongest + 1];
  size_t *twoAbove = rows[0], *above = rows[1], *row = rows[2];
  for (size_t j = 0; j <= b.size(); ++j) above[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        row[j] = std::min(row[j], twoAbove[j - 2] + 1);
    }
    size_t* const spare = twoAbove;
    twoAbove = above;
    above = row;
    row = spare;
  }
  return above[b.size()];
}

}  // namespace

std::string NearestWord(const std::string& word, const std::vector<std::string>& known) {
  if (word.empty() || word.size() > kLongest) return {};
  const std::string wanted = InSmallLetters(word);
  std::string nearest;
  // A third of the letters may be wrong: more would find words that have nothing to do with it.
  size_t fewest = std::max<size_t>(1, wanted.size() / 3) + 1;
  for (const std::string& candidate : known) {
    if (candidate.size() > kLongest) continue;
    const size_t slips = Slips(wanted, InSmallLetters(candidate));
    if (slips < fewest) {
      fewest = slips;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string DidYouMean(const std::string& word, const std::vector<std::string>& known) {
  const std::string nearest = NearestWord(word, known);
  return nearest.empty() ? "" : "; did you mean \"" + PrintableText(nearest) + "\"?";
}

}  // namespace ovhost
