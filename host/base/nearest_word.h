// What somebody meant who wrote a word that isn't known.
#pragma once

#include <string>
#include <vector>

#include "core/api.h"

namespace ovhost {

/// The known word that takes the fewest slips of the hand (a letter more, less, other, or two swapped,
/// whatever the case) to become `word`; the earlier of equals; empty where none is near. Thread-safe.
OV_API std::string NearestWord(const std::string& word, const std::vector<std::string>& known);

/// "; did you mean \"x\"?" behind a message, or nothing. Thread-safe.
OV_API std::string DidYouMean(const std::string& word, const std::vector<std::string>& known);

}  // namespace ovhost
