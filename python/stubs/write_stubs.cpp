// Writes the type stubs of the native module: those of its objects, which a file states, and the
// functions of the table of operations.
//
//   quillon_stubs objects.pyi _quillon.pyi
#include <exception>
#include <iostream>

#include "../bindings/signature.h"
#include "kit/files/files.h"

int main(int count, char** names) try {
  if (count != 3) {
    std::cerr << "quillon_stubs OBJECTS STUBS\n";
    return 2;
  }
  std::string text = quillon::kit::ReadFile(names[1]);
  const char* family = "";
  for (const auto& signature : quillon::python::Signatures()) {
    if (signature.operation->family != std::string(family)) {
      family = signature.operation->family;
      text += std::string("\n# ---- ") + family + "\n";
    }
    text += signature.Stub() + "\n";
  }
  quillon::kit::WriteFile(names[2], text);
} catch (const std::exception& error) {
  std::cerr << "quillon_stubs: " << error.what() << '\n';
  return 1;
}
