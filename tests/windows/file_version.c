/* file_version FILE...: what Windows says of each file's version: the number, then the texts. */
#include <stdio.h>
#include <windows.h>

static void show(const char* file) {
  static const char* const names[] = {"FileVersion", "ProductVersion", "ProductName",
                                      "OriginalFilename"};
  static char block[8192];
  char query[64];
  VS_FIXEDFILEINFO* fixed = NULL;
  UINT size = 0;
  size_t i;
  if (!GetFileVersionInfoA(file, 0, sizeof block, block) ||
      !VerQueryValueA(block, "\\", (void**)&fixed, &size)) {
    printf("no version\n");
    return;
  }
  printf("%u.%u.%u.%u", (unsigned)HIWORD(fixed->dwFileVersionMS),
         (unsigned)LOWORD(fixed->dwFileVersionMS), (unsigned)HIWORD(fixed->dwFileVersionLS),
         (unsigned)LOWORD(fixed->dwFileVersionLS));
  for (i = 0; i < sizeof names / sizeof *names; ++i) {
    char* text = NULL;
    (void)sprintf(query, "\\StringFileInfo\\040904b0\\%s", names[i]);
    printf(" %s", VerQueryValueA(block, query, (void**)&text, &size) ? text : "-");
  }
  printf("\n");
}

int main(int count, char** words) {
  int i;
  for (i = 1; i < count; ++i) show(words[i]);
  return 0;
}
