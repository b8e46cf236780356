#pragma once
// The settings record field by field, for front ends that show and change it by name. A field
// is named by its view where it has one (maxConcurrentProcessing, cleanOutputMode,
// cleanCopySuffix, preferredEmailClient), else by its own name; values are raw values, and
// writes go through the views, so clamps and fall-backs apply.

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "data/app_settings.h"

namespace tavrin {

// A value that the field cannot take (not a number, not true/false, not a UUID).
class SettingsValueError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct AppSettingsField {
    std::string_view key;
    std::string_view accepts;  // what a value may be, for messages and help
    // The field's value as JSON (text, number, flag or null).
    nlohmann::json (*get)(const AppSettings& settings);
    // Throws SettingsValueError for a value of the wrong form.
    void (*set)(AppSettings& settings, std::string_view value);
};

// In schema order, without `id`.
const std::vector<AppSettingsField>& appSettingsFields();
const AppSettingsField* appSettingsField(std::string_view key);
// The value as one line of text: JSON texts without their quotes, null as "none".
std::string appSettingsFieldText(const AppSettingsField& field, const AppSettings& settings);

}  // namespace tavrin
