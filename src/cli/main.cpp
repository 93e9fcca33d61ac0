#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0) {
    std::puts("usage: velomar-cli <command> [options]");
    return argc < 2 ? 1 : 0;
  }
  std::fprintf(stderr, "velomar-cli: unknown command '%s'\n", argv[1]);
  return 1;
}
