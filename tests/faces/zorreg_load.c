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

#define LOADED(name) ((__typeof__(name)*)find(#name))

int main(int count, char** words) {
  zorreg* registry = NULL;
  zorreg_record* record;
  library = count == 2 ? LoadLibraryA(words[1]) : NULL;
  if (library == NULL) return 1;
  record = LOADED(zorreg_record_new)();
  if (LOADED(zorreg_open)("var", "caf\xE9.var", &registry) != GENREG_RC_PATH_ENCODING ||
      LOADED(zorreg_open)("var", "caf\xC3\xA9 \xE6\x97\xA5.var", &registry) != 0 ||
      LOADED(zorreg_record_set)(record, "Variable", "A") != 0 ||
      LOADED(zorreg_record_set)(record, "Value", "1") != 0 ||
      LOADED(zorreg_set)(registry, record) != 0) {
    return 1;
  }
  printf("%s\n", LOADED(zorreg_record_get)(record, "Value"));
  LOADED(zorreg_close)(registry);
  LOADED(zorreg_record_free)(record);
  return 0;
}
