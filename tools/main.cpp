#include "tools/command_line.h"

int main(int argc, char** argv) { return cv::tools::run_command_line(argc, argv); }
