// Text of the contract: UTF-8 in a standard string.
#pragma once

#include <string>

using trString = std::string;
