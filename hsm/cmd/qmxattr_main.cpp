#include "hsm/cmd/attr_command.h"

int main(int argc, char** argv) {
  return qmxattrMain(argc, argv);
}
