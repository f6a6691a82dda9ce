/* A daemon that keeps its settings: reads them, with defaults for those that nobody has set,
 * changes one of them, and reads again. */
#include <stdio.h>

#include "zorreg.h"

static const struct {
  const char* name;
  const char* standard;
} settings[] = {{"Interval", "30"}, {"Retries", "3"}};

static unsigned show(zorreg* registry, zorreg_record* record) {
  size_t i;
  for (i = 0; i < sizeof settings / sizeof *settings; ++i) {
    const char* value = settings[i].standard;
    const char* from = "default";
    unsigned code = zorreg_record_set(record, "Value", NULL);
    if (code == 0) code = zorreg_record_set(record, "Comment", NULL);
    if (code == 0) code = zorreg_record_set(record, "Variable", settings[i].name);
    if (code == 0) code = zorreg_get(registry, record, record);
    if (code == 0) {
      value = zorreg_record_get(record, "Value");
      from = zorreg_record_get(record, "Comment");
    } else if (code != GENREG_RC_NOT_FOUND && code != GENREG_RC_NO_FILE) {
      return code;
    }
    printf("%s is %s (%s)\n", settings[i].name, value, from == NULL ? "set" : from);
  }
  return 0;
}

static unsigned change(zorreg* registry, zorreg_record* record) {
  unsigned code = zorreg_record_set(record, "Variable", "Interval");
  if (code == 0) code = zorreg_record_set(record, "Value", "60");
  if (code == 0) code = zorreg_record_set(record, "Comment", "by hand");
  return code == 0 ? zorreg_set(registry, record) : code; /* committed, or as it was */
}

int main(void) {
  zorreg* registry = NULL;
  zorreg_record* record = zorreg_record_new();
  unsigned code = zorreg_open("bin", "daemon.reg", &registry);
  if (code == 0) code = show(registry, record);
  if (code == 0) code = change(registry, record);
  if (code == 0) code = show(registry, record);
  if (code != 0) fprintf(stderr, "%s: %s\n", zorreg_code_name(code), zorreg_cause(registry));
  zorreg_record_free(record);
  zorreg_close(registry);
  return code == 0 ? 0 : 1;
}
