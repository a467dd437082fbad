#include "map_conv_deamon.h"

int main(int argc, char** argv) {
  v2xmapconv_init(argc, argv);
  v2xmapconv_exec();
  return v2xmapconv_ExitStatus();
}
