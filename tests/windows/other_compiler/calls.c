/* The C interface from a program without any runtime library: what it does to a registry and what
 * it finds are lines of its output, and so is the name of a code from the library loaded by name.
 */
#include "zorreg.h"

typedef const char* (*code_name)(unsigned);
__declspec(dllimport) void ExitProcess(unsigned code);
__declspec(dllimport) void* GetStdHandle(unsigned which);
__declspec(dllimport) int WriteFile(void* file, const void* bytes, unsigned size, unsigned* done,
                                    void* overlapped);
__declspec(dllimport) void* LoadLibraryA(const char* name);
__declspec(dllimport) code_name GetProcAddress(void* library, const char* name);

static void print(const char* text, const char* end) {
  unsigned size = 0, done;
  while (text != NULL && text[size] != '\0') ++size;
  (void)WriteFile(GetStdHandle((unsigned)-11), text, size, &done, NULL);
  if (*end != '\0') print(end, "");
}

static void show(const char* what, unsigned code, const zorreg* registry) {
  print(what, " ");
  print(zorreg_code_name(code), " ");
  print(zorreg_cause(registry), "\n");
}

static unsigned set(zorreg* registry, zorreg_record* record, const char* name, const char* value) {
  unsigned code = zorreg_record_set(record, "Variable", name);
  if (code == 0) code = zorreg_record_set(record, "Value", value);
  return code == 0 ? zorreg_set(registry, record) : code;
}

void start(void) {
  zorreg* registry = NULL;
  zorreg_record* record = zorreg_record_new();
  unsigned code = zorreg_open("text", "calls.reg", &registry);
  code_name named;
  show("text", code, NULL);
  show("open", zorreg_open("bin", "calls.reg", &registry), NULL);
  show("begin", zorreg_begin(registry), registry);
  show("set", set(registry, record, "Timeout", "30"), registry);
  show("set", set(registry, record, "Retries", "5"), registry);
  show("commit", zorreg_commit(registry), registry);
  show("begin", zorreg_begin(registry), registry);
  show("delete", zorreg_delete(registry, record), registry);
  show("abandon", zorreg_abandon(registry), registry);
  show("set", set(registry, record, "Timeout", "60"), registry);
  (void)zorreg_record_set(record, "Value", NULL);
  show("get", zorreg_get(registry, record, record), registry);
  print(zorreg_record_get(record, "Value"), "\n");
  show("scan", zorreg_scan(registry), registry);
  while ((code = zorreg_next(registry, record)) == 0) {
    print(zorreg_record_get(record, "Variable"), "=");
    print(zorreg_record_get(record, "Value"), "\n");
  }
  show("next", code, registry);
  zorreg_record_free(record);
  zorreg_close(registry);
  named = GetProcAddress(LoadLibraryA("zorgenreg64.dll"), "zorreg_code_name");
  print(named == NULL ? "not found" : named(GENREG_RC_NOT_FOUND), "\n");
  ExitProcess(0);
}
