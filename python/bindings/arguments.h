// What a caller gives to an operation of the table, checked against the table.
#pragma once

#include <deque>
#include <string>

#include "arrays.h"
#include "kit/operations/operation.h"

namespace quillon::python {

// Pictures that stand where a file name could.
class GivenPictures {
 public:
  GivenPictures() = default;
  GivenPictures(const GivenPictures&) = delete;
  GivenPictures& operator=(const GivenPictures&) = delete;

  // Takes an array by this name, or a file by its own; returns the name by which sources know it.
  std::string Add(const std::string& name, const py::object& value);

  const kit::Sources& Sources() const { return sources_; }
  // When the files of the sources were read.
  void TellNotes() { notes_.Tell(); }

 private:
  Notes notes_;
  kit::Sources sources_ = {"", notes_.Reading()};
  std::deque<Source<unsigned char>> grey_;
  std::deque<Source<RGB_24>> colour_;
};

class Arguments {
 public:
  // By their names. TypeError and ValueError name the argument, what is wanted and what it is.
  Arguments(const kit::Operation& operation, const py::dict& values);
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  const kit::Values& Values() const { return values_; }
  const kit::Sources& Sources() const { return pictures_.Sources(); }
  // When the files of the sources were read.
  void TellNotes() { pictures_.TellNotes(); }

 private:
  kit::Json Read(const kit::Argument& argument, const py::object& value);

  kit::Values values_;
  GivenPictures pictures_;
};

}  // namespace quillon::python
