// Runs a recipe over an image, as the workbench writes such programs.
#include <iostream>

#include "quillon/recipe.h"

int main(int, char** arguments) try {
  quillon::RecipeRunner recipe(arguments[1]);
  std::cout << recipe.RunFile(arguments[2]).line << '\n';
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
