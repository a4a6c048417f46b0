#include <cstdlib>

#include "archiver/driver.h"

int main(int argc, char **argv) { exit(run_archiver(argc, argv)); }
