// ZEPH: runs in its work directory without arguments; the listing goes to
// standard output.
#include "control/run_driver.h"

#include <iostream>

int main() {
  zeph::run r(std::cout, "");
  return zeph::exit_code_of_run(r);
}
