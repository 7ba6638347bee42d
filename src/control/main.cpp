// ZEPH: runs in its work directory without arguments; the listing goes to
// standard output.
#include "control/run_driver.h"
#include "formats/byte_file.h"

#include <iostream>

int main() {
  zeph::let_size_limit_fail_writes();
  zeph::run r(std::cout, "");
  const int code = zeph::exit_code_of_run(r);
  if (!std::cout) std::cerr << "ZEPH: the listing could not be written; exit code " << code << '\n';
  return code;
}
