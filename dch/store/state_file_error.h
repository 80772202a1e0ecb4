// state_file_error.h: why a file of state cannot be used.
#ifndef DCH_STORE_STATE_FILE_ERROR_H
#define DCH_STORE_STATE_FILE_ERROR_H

#include <stdexcept>

namespace dch {

// A sentence for the operator that names the file and says what to do.
class StateFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace dch

#endif  // DCH_STORE_STATE_FILE_ERROR_H
