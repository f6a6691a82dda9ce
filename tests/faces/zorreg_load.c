/* A Windows program that knows the library by its file and its functions by their names alone:
 * zorreg_load LIBRARY makes a record at a path that no code page has and prints what it finds. */
#include <stdio.h>
#include <windows.h>

#include "zorreg.h"

typedef void (*function)(void);

static HMODULE library;

static function find(const char* name) {
  const function found = (function)GetProcAddress(library, name);
  if (found == NULL) {
    printf("%s is not exported\n", name);
    ExitProcess(1);
  }
  return found;
}

int main(int count, char** words) {
  unsigned (*open)(const char*, const char*, zorreg**);
  zorreg_record* (*make)(void);
  unsigned (*assign)(zorreg_record*, const char*, const char*);
  unsigned (*store)(zorreg*, const zorreg_record*);
  const char* (*value)(const zorreg_record*, const char*);
  void (*close)(zorreg*);
  zorreg* registry = NULL;
  zorreg_record* record;
  library = count == 2 ? LoadLibraryA(words[1]) : NULL;
  if (library == NULL) return 1;
  open = (unsigned (*)(const char*, const char*, zorreg**))find("zorreg_open");
  make = (zorreg_record * (*)(void)) find("zorreg_record_new");
  assign = (unsigned (*)(zorreg_record*, const char*, const char*))find("zorreg_record_set");
  store = (unsigned (*)(zorreg*, const zorreg_record*))find("zorreg_set");
  value = (const char* (*)(const zorreg_record*, const char*))find("zorreg_record_get");
  close = (void (*)(zorreg*))find("zorreg_close");
  record = make();
  if (open("var", "caf\xE9.var", &registry) != GENREG_RC_PATH_ENCODING ||
      open("var", "caf\xC3\xA9 \xE6\x97\xA5.var", &registry) != 0 ||
      assign(record, "Variable", "A") != 0 || assign(record, "Value", "1") != 0 ||
      store(registry, record) != 0) {
    return 1;
  }
  printf("%s\n", value(record, "Value"));
  close(registry);
  ((void (*)(zorreg_record*))find("zorreg_record_free"))(record);
  return 0;
}
