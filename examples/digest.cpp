// Prints the MD5 of a file (this program itself unless one is named) and the SHA-256 of a text.

#include <devcomm/digest.h>

#include <cstdio>

int main(int argc, char** argv)
{
  char hex[33];
  const char* path = argc > 1 ? argv[1] : "/proc/self/exe";
  if (GetMd5FromFile(path, 0, hex) != 0)
  {
    fprintf(stderr, "cannot open %s\n", path);
    return 1;
  }
  printf("%s  %s\n", hex, path);

  const unsigned char text[] = {'a', 'b', 'c'};
  unsigned char digest[32];
  sha256(text, sizeof text, digest);
  for (unsigned char byte : digest)
  {
    printf("%02x", byte);
  }
  printf("  \"abc\"\n");
  return 0;
}
