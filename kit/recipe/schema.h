// What a recipe may be, written down from the table of operations.
#pragma once

#include <string>

#include "kit/operations/argument.h"

namespace quillon::kit::recipe {

// JSON Schema, draft 2020-12: everything but what refers to other places of a recipe.
Json RecipeSchema();

// The tables of operations and of what can be measured, in Markdown.
std::string OperationsInMarkdown();

}  // namespace quillon::kit::recipe
