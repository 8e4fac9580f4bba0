#pragma once
// Feature toggles: named on/off switches that gate code paths still being rolled out.
//
// A toggle's state comes from, in order: an in-process override (toggleStateIs), the
// RPOLICY_TOGGLES environment variable, the caller's default. The variable holds a
// comma-separated list such as "RoutingPolicyIpAclToggle=off,OtherToggle=on"; values are
// on/off, true/false or 1/0 in any case, names match exactly. When a name is listed twice the
// last parseable entry wins, so a setting appended to an existing list takes effect.
//
// The variable is read on every call so that a changed environment is seen at once; a caller on
// a hot path reads its toggle once and keeps the answer. All functions are thread-safe.

#include <string_view>

namespace Toggle {

bool getToggleState(std::string_view name, bool defaultValue);

void toggleStateIs(std::string_view name, bool state);
void toggleStateDel(std::string_view name);
void toggleStateDelAll();

}  // namespace Toggle
