// What a caller gives to an operation of the table: bound to its arguments as Python binds them,
// and checked against the table.
#pragma once

#include <deque>
#include <vector>

#include "arrays.h"
#include "kit/operations/operation.h"
#include "signature.h"

namespace quillon::python {

class Arguments {
 public:
  enum class Images { kTaken, kComeLater };

  // TypeError and ValueError name the argument, what is wanted and what it is.
  Arguments(const Signature& signature, Images images, const py::tuple& positional,
            const py::dict& named);
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  const std::vector<Array>& Pictures() const { return images_; }
  const Array& Out() const { return out_; }
  const kit::Values& Values() const { return values_; }
  const kit::Sources& Sources() const { return sources_; }
  // When the files of the sources were read.
  void TellNotes() const { notes_.Tell(); }

 private:
  kit::Json Read(const kit::Argument& argument, const py::object& value);
  kit::Json ReadSource(const std::string& name, const py::object& value);

  std::vector<Array> images_;
  Array out_ = {py::none()};
  kit::Values values_;
  Notes notes_;
  // Arrays that stand where a file name could.
  kit::Sources sources_ = {"", notes_.Reading()};
  std::deque<Source<unsigned char>> grey_;
  std::deque<Source<RGB_24>> colour_;
};

// A positional or named argument list of one or two images, and `out`.
void BindImages(const Signature& signature, const py::tuple& positional, const py::dict& named,
                std::vector<Array>& images, Array& out);

}  // namespace quillon::python
