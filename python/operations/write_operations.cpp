// Writes the operations of the table as a Python file: a function for each, with types, defaults
// and a description.
//
//   quillon_write_operations operations.py
#include <exception>
#include <iostream>

#include "../bindings/signature.h"
#include "kit/files/files.h"

namespace {

constexpr const char* kHead =
    R"("""The operations: functions from images to images, and to things found in them."""

from __future__ import annotations

from typing import Literal, Optional, Sequence, Union

from . import _quillon
from ._types import Image, Kernel, Layout, Points, Source
from .things import Things
)";

}  // namespace

int main(int count, char** names) try {
  if (count != 2) {
    std::cerr << "quillon_write_operations FILE\n";
    return 2;
  }
  std::string text = kHead, all = "\n__all__ = [";
  for (const auto& signature : quillon::python::Signatures()) {
    all += "\"" + signature.name + "\", ";
  }
  text += all + "]\n";
  const char* family = "";
  for (const auto& signature : quillon::python::Signatures()) {
    if (signature.operation->family != std::string(family)) {
      family = signature.operation->family;
      text += std::string("\n\n# ---- ") + family;
    }
    text += "\n\n" + signature.Definition();
  }
  quillon::kit::WriteFile(names[1], text);
} catch (const std::exception& error) {
  std::cerr << "quillon_write_operations: " << error.what() << '\n';
  return 1;
}
