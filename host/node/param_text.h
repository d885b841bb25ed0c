// Values of parameters as text.
#pragma once

#include <string>
#include <vector>

#include "core/node.h"

struct trParamInfo;

namespace ovhost {

/// Text of a parameter's value in the project file's spelling: shortest numbers that read back the same,
/// vectors and colours with blanks between, links as stored.
OV_API std::string ValueToText(const trParamValue& value);
/// The value of type `type` that `text` spells; false where it is no such value or not finite.
OV_API bool TextToValue(const std::string& text, trParamType type, trParamValue& value);
/// The same for a parameter, which may have a menu: its entries are values too, by their text or the
/// beginning of it that no other entry has, whatever the case.
OV_API bool TextToValue(const std::string& text, const trParamInfo& param, trParamValue& value);
/// The parameter's menu; null where it has none.
OV_API const std::vector<trIntHint::MenuItem>* MenuOf(const trParamInfo& param);
OV_API std::string DefaultText(const trParamInfo& param);
/// The type's name as users see it: "int", "double", "shader_link" and so on.
OV_API const char* TypeName(trParamType type);
/// The label of a parameter: its display name, or its name with the underscores opened and a capital.
OV_API std::string DisplayName(const trParamInfo& param);
/// Number of animatable components: 1 for numbers, 2 or 3 for vectors and colours, 0 for the rest.
OV_API int NumComponents(trParamType type);

}  // namespace ovhost
