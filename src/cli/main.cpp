#include "Cli.h"

int main(int argc, char** argv) { return tarnbridge::cli::run(argc, argv); }
