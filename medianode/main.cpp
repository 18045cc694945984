#include "medianode/service.h"

int main(int argc, char** argv) {
  cv::mn::Service service;
  return service.start(argc, argv);
}
