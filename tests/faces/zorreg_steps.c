/* The C interface from a C compiler: the steps of a table, on a registry of each kind; what they
 * answer and what is stored then. A step that fails leaves the file byte for byte as it was.
 * zorreg_steps STEPS, in a directory for its file. */
#include <stdio.h>
#include <string.h>

#include "zorreg.h"

/* clang-format off */
#define KIND(kind, before, after) {kind, before, sizeof before - 1, after, sizeof after - 1}
static const struct {
  const char *kind, *before; /* the file's bytes */
  size_t size;
  const char *after;
  size_t size_after;
} kinds[] = {
    KIND("bin", "\x24\0\0\0T\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF\xE4\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"
         "\x24\0\0\0sixteen_letters_\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0",
         "\x24\0\0\0U\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"),
    KIND("var", "# head\n\nodd\n  A=1 #\xE4.\nB = 2\nA = 3\n", "# head\n\nodd\n  A=5\nB = 2\nA = 5\n"),
    KIND("services", "# head\n\nodd 7/x y\n", "# head\n\nweb\t\t80/tcp\t\thttp\nweb2\t\t80/udp\n"),
    KIND("global", "\x25\0\0\0\4\0\0\0\x13\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2\0S\0\2\0V\0\3\0\xAA\xBB\xCC\7\0\0\0",
         "\x29\0\0\0\4\0\0\0\x17\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\2\0S\0\2\0V\0\2\0\x39\0\3\0\xAA\xBB\xCC\7\0\0\0"
         "\x26\0\0\0\4\0\0\0\x53\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\3\0S2\0\2\0V\0\0\0\1\0\xDD\0\0\0\0"),
    KIND("var", "web 80/tcp\n", "web 80/tcp\n"),
    KIND("var", "", "A = 1\n"),
};
#define CODE(name) {name, #name}
static const struct {
  unsigned code;
  const char *name;
} codes[] = {
    CODE(OSS_RC_NULL_ARGUMENT), CODE(OSS_RC_NO_MEMORY), CODE(GENREG_RC_BAD_VALUE), CODE(GENREG_RC_LOCK_FAILED),
    CODE(GENREG_RC_END), CODE(GENREG_RC_BUSY), CODE(GENREG_RC_READ_FAILED), CODE(GENREG_RC_BUFFER_ALLOC),
    CODE(GENREG_RC_DUPLICATE), CODE(GENREG_RC_UNKNOWN_FIELD), CODE(GENREG_RC_NO_ARGUMENT), CODE(GENREG_RC_PATH_TOO_LONG),
    CODE(GENREG_RC_KEY_EMPTY), CODE(GENREG_RC_NOT_FOUND), CODE(GENREG_RC_UNCHANGED), CODE(GENREG_RC_AMBIGUOUS),
    CODE(GENREG_RC_UNPACK_FAILED), CODE(GENREG_RC_NO_SCAN), CODE(GENREG_RC_SCAN_OPEN), CODE(GENREG_RC_UPDATE_OPEN),
    CODE(GENREG_RC_NO_UPDATE), CODE(GENREG_RC_UPDATE_IN_SCAN), CODE(GENREG_RC_NO_FILE), CODE(GENREG_RC_UNKNOWN_KIND),
    CODE(GENREG_RC_FIELD_MISSING), CODE(GENREG_RC_OTHER_KIND), CODE(GENREG_RC_PATH_ENCODING)};
/* clang-format on */

static int failures;

static void expect(int holds, const char* what, const char* seen) {
  if (!holds) printf("%s: %s\n", what, seen);
  failures += !holds;
}

static size_t contents(char* bytes) {
  FILE* file = fopen("registry", "rb");
  const size_t count = file == NULL ? 0 : fread(bytes, 1, 4096, file);
  if (file != NULL) (void)fclose(file);
  return count;
}

static zorreg_record* record_of(const char* fields) {
  static char copy[256], letters[2101];
  zorreg_record* record = zorreg_record_new();
  char *field, *value;
  memset(letters, 'x', sizeof letters - 1);
  for (field = strtok(strcpy(copy, fields), "|"); field != NULL; field = strtok(NULL, "|")) {
    if ((value = strchr(field, '=')) == NULL) continue;
    *value++ = '\0';
    (void)zorreg_record_set(record, field, *value == '@' ? letters : value);
  }
  return record;
}

static void append(char* text, const zorreg_record* record) {
  const char* field;
  size_t i;
  for (i = 0; (field = zorreg_record_field(record, i)) != NULL; ++i) {
    strcat(strcat(strcat(text, &"|"[i == 0]), field), "=");
    strcat(text, zorreg_record_get(record, field));
  }
}

static unsigned operate(zorreg* registry, const char* is, zorreg_record* key,
                        zorreg_record* record) {
  static const struct {
    const char* name;
    unsigned (*run)(zorreg* registry);
  } plain[] = {{"scan", zorreg_scan},
               {"begin", zorreg_begin},
               {"commit", zorreg_commit},
               {"abandon", zorreg_abandon}};
  size_t i;
  for (i = 0; i < sizeof plain / sizeof *plain; ++i) {
    if (strcmp(is, plain[i].name) == 0) return plain[i].run(registry);
  }
  if (strcmp(is, "get") == 0) return zorreg_get(registry, key, key);
  if (strcmp(is, "add") == 0) return zorreg_add(registry, record);
  if (strcmp(is, "set") == 0) return zorreg_set(registry, record);
  if (strcmp(is, "change") == 0) return zorreg_change(registry, key, record);
  return *is == 'n' ? zorreg_next(registry, key) : zorreg_delete(registry, key);
}

static void run_step(zorreg* registry, const char* line, char* const columns[]) {
  char before[4096], after[4096], seen[4096] = "";
  zorreg_record *key = record_of(columns[1]), *record = record_of(columns[2]);
  const size_t size = contents(before);
  const unsigned code = operate(registry, columns[0], key, record);
  const char *cause = zorreg_cause(registry), *words = *columns[4] == '-' ? "" : columns[4];
  expect(strcmp(zorreg_code_name(code), columns[3]) == 0, line, zorreg_code_name(code));
  if (code != 0) {
    expect(contents(after) == size && memcmp(before, after, size) == 0, line, "other bytes");
    expect(code == GENREG_RC_END || (*cause != '\0' && strstr(cause, words)), line, cause);
  } else if (*columns[0] == 'g') {
    append(seen, key);
  } else if (*columns[4] != '-') {
    (void)zorreg_scan(registry);
    for (; zorreg_next(registry, key) == 0; strcat(seen, "\n")) append(seen, key);
    (void)zorreg_scan_end(registry);
  }
  expect(code != 0 || *columns[4] == '-' || strcmp(columns[4], seen) == 0, line, seen);
  zorreg_record_free(key);
  zorreg_record_free(record);
}

static void run_steps(FILE* steps) {
  char text[512], line[512], after[4096], *columns[5], *at;
  size_t kind = 0, size, i;
  zorreg* registry = NULL;
  while (fgets(text, sizeof text, steps) != NULL) {
    text[strcspn(text, "\r\n")] = '\0';
    if (*text == '#') continue;
    if (*text == '=') {
      FILE* file = kinds[kind].size == 0 ? NULL : fopen("registry", "wb");
      if (file != NULL) {
        (void)fwrite(kinds[kind].before, 1, kinds[kind].size, file);
        (void)fclose(file);
      }
      expect(zorreg_open(kinds[kind].kind, "registry", &registry) == 0, text, "open");
      continue;
    }
    if (*text == '.') {
      size = contents(after);
      expect(size == kinds[kind].size_after && memcmp(after, kinds[kind].after, size) == 0,
             kinds[kind].kind, "other bytes");
      zorreg_close(registry);
      (void)remove("registry");
      ++kind;
      continue;
    }
    (void)strcpy(line, text);
    for (at = text; *at != '\0'; ++at) *at = *at == '^' ? '\n' : *at == '%' ? '\xE4' : *at;
    for (i = 0, at = strtok(text, "\t"); i < 5 && at != NULL; at = strtok(NULL, "\t"))
      columns[i++] = at;
    if (i == 5) run_step(registry, line, columns);
    expect(i == 5, line, "is no step");
  }
  expect(kind == sizeof kinds / sizeof *kinds, "the table", "ends too early");
}

/* Null and unknown arguments, another writer, and what is committed. */
static void run_arguments(void) {
  zorreg *one = NULL, *other = NULL, *unopened;
  zorreg_record* record = record_of("Variable=A|Value=1");
  expect(zorreg_open("ini", "registry", &one) == GENREG_RC_UNKNOWN_KIND && one == NULL &&
             zorreg_open("var", NULL, &one) == OSS_RC_NULL_ARGUMENT &&
             zorreg_open("var", "", &one) == GENREG_RC_NO_ARGUMENT &&
             zorreg_open("var", "registry", NULL) == OSS_RC_NULL_ARGUMENT &&
             zorreg_open("var", "registry", &one) == 0 &&
             zorreg_open("var", "registry", &other) == 0 &&
             zorreg_get(NULL, record, record) == OSS_RC_NULL_ARGUMENT &&
             zorreg_change(one, NULL, record) == OSS_RC_NULL_ARGUMENT && *zorreg_cause(one) != 0 &&
             zorreg_record_set(record, NULL, "") == OSS_RC_NULL_ARGUMENT,
         "arguments", "null or unknown");
  expect(!zorreg_record_get(NULL, "A") && !zorreg_record_get(record, NULL) &&
             !zorreg_record_field(NULL, 0) && !zorreg_committed(NULL) && *zorreg_cause(NULL) == 0 &&
             zorreg_open("ini", "", &unopened) != 0 && strstr(zorreg_cause(NULL), "'ini'") &&
             zorreg_open("bin", "", &unopened) != 0 && strstr(zorreg_cause(NULL), "empty"),
         "arguments", zorreg_cause(NULL));
  zorreg_set_lock_timeout(other, 1);
  expect(zorreg_begin(one) == 0 && zorreg_set(other, record) == GENREG_RC_BUSY &&
             !zorreg_committed(other) && zorreg_record_set(record, "Value", "2") == 0 &&
             zorreg_set(one, record) == 0 && !zorreg_committed(one) && zorreg_commit(one) == 0 &&
             zorreg_committed(one) && zorreg_set(other, record) == 0 && !zorreg_committed(other),
         "two writers", "");
  expect(zorreg_record_set(record, "Value", NULL) == 0 && !zorreg_record_get(record, "Value") &&
             zorreg_record_field(record, 1) == NULL,
         "a record", "field");
  zorreg_record_free(record);
  zorreg_record_free(NULL);
  zorreg_close(one);
  zorreg_close(other);
  zorreg_close(NULL);
}

int main(int count, char** words) {
  FILE* steps = count == 2 ? fopen(words[1], "r") : NULL;
  size_t i;
  (void)remove("registry");
  for (i = 0; i < sizeof codes / sizeof *codes; ++i) {
    expect(strcmp(zorreg_code_name(codes[i].code), codes[i].name) == 0, codes[i].name, "code");
  }
  expect(steps != NULL, "the table", "is not there");
  if (steps != NULL) run_steps(steps);
  run_arguments();
  (void)remove("registry");
  return failures == 0 ? 0 : 1;
}
