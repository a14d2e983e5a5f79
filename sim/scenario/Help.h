// SPDX-License-Identifier: Apache-2.0
//
// Help on the language, from the tables that are the language.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "scenario/Form.h"

namespace sim::scenario {

/** The words that stand around commands, which the reader of scenarios takes itself. */
[[nodiscard]] const FormGroup& aroundForms();
/** The commands that only a dialogue has. */
[[nodiscard]] const FormGroup& dialogueForms();
/** Every group there is, in the order of the documentation. */
[[nodiscard]] std::vector<const FormGroup*> helpGroups();

/** Everything, a line for each form. */
[[nodiscard]] std::string helpForAll();
/** Usage, help and example of the forms that begin with these words. */
[[nodiscard]] std::string helpFor(const std::vector<std::string>& words);
/** The forms that begin with these words, as programs read it. */
[[nodiscard]] Json::Value helpAsJson(const std::vector<std::string>& words);

}  // namespace sim::scenario
