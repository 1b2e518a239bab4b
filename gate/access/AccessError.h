#pragma once

#include <stdexcept>

/// What is wrong with a file of the access rules, in words for the operator that name it.
class AccessError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The system lacks something for the moment, so that the same file may be read a little later.
class PassingAccessError : public AccessError {
 public:
  using AccessError::AccessError;
};
