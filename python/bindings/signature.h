// How an operation of the table reads as a Python function: for the module and for its stubs.
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

  // "(image, size, *, out=None)"
  std::string Text() const;
  // "(size)": without pictures, for an operation that is made ready before it gets them.
  std::string ArgumentsText() const;
  // What help() shows below the signature.
  std::string Description() const;
  // Its line in a stub file.
  std::string Stub() const;
};

Signature SignatureOf(const kit::Operation& operation);

// Of all operations, in the order of the table.
const std::vector<Signature>& Signatures();

}  // namespace quillon::python
