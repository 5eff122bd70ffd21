// How an operation of the table reads as a Python function: for the module and for the file of
// functions.
#pragma once

#include <string>
#include <vector>

#include "kit/operations/operation.h"

namespace quillon::python {

struct Signature {
  std::string name;  // with underscores
  const kit::Operation* operation = nullptr;
  std::vector<const char*> images;              // names of the pictures it works on
  std::vector<const kit::Argument*> arguments;  // those that must be given first
  bool MakesPicture() const { return kit::IsPicture(operation->output); }

  // What help() shows below the signature.
  std::string Description() const;
  // The whole function, in Python.
  std::string Definition() const;
};

Signature SignatureOf(const kit::Operation& operation);

// Of all operations, in the order of the table.
const std::vector<Signature>& Signatures();

}  // namespace quillon::python
