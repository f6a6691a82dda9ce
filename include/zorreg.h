/* The registries as plain C, for every compiler and language that can call a C function; the names
 * are exported by libzorgenreg64.so and zorgenreg64.dll as they stand here.
 *
 * A registry is opened as one of four kinds; a record is a set of named fields with values:
 *
 *   kind      fields                              a record's identity
 *   bin       Variable Value Comment              Variable
 *   var       Variable Value Comment              Variable
 *   services  Name Port Protocol Aliases Comment  Name and Protocol
 *   global    Type, the fields of that type, CheckSum, those of a newer version
 *             instance: Service VersionCode InstanceName InstancePath Usage StartAtBoot Maintenance
 *                       InstallPath HostName Comment                         InstanceName
 *             services: Service VersionCode InstallPath Text2 Text3 Level Number1 Byte1 Number2
 *                       Number3                                              Service
 *             variable: Service Variable Value Comment                       Service and Variable
 *
 * A global record that lacks a part of its identity is identified by the rest of it, and one that
 * has none of it by all of its fields.
 *
 *   zorreg *settings = NULL;
 *   zorreg_record *record = zorreg_record_new();
 *   unsigned code = zorreg_open("bin", "settings.reg", &settings);
 *   if (code == 0) code = zorreg_record_set(record, "Variable", "Timeout");
 *   if (code == 0) code = zorreg_record_set(record, "Value", "30");
 *   if (code == 0) code = zorreg_set(settings, record);
 *   if (code != 0) fprintf(stderr, "%s: %s\n", zorreg_code_name(code), zorreg_cause(settings));
 *   zorreg_record_free(record);
 *   zorreg_close(settings);
 *
 * The order of calls: open; then any number of get, add, change, set and delete, each of which is
 * committed, or has failed and changed nothing, when it returns; close. A scan is zorreg_scan,
 * zorreg_next until GENREG_RC_END, zorreg_scan_end. Many changes with one commit are zorreg_begin,
 * any operations, zorreg_commit or zorreg_abandon.
 *
 * Values. Each is a text that ends with a NUL, UTF-8. Whole numbers are decimal: Value of kind bin
 * from -2147483648 to 2147483647, Port from 1 to 65535, a flag (StartAtBoot, Maintenance) 0 or 1,
 * CheckSum, which is stored as it is given, as Value. VersionCode is up to four numbers below 65536
 * with dots between them, "9.7.0.2". Aliases are words with a blank between them. Variable and
 * Comment of kind bin hold up to 15 bytes, a line of a text registry (var, services) 2,046, the
 * texts of a global record what include/genreg_global.h says. A field of a newer version that a
 * global record holds is named by its bit in hexadecimal and has its bytes as "0x" and two digits
 * for each: "Field0x400" with "0xaabbcc". Those of a record that is there survive every change, and
 * may be given as they are but not changed; a new record, of another registry for instance, gets
 * those that it is given.
 *
 * A value that is no UTF-8 is refused. What another program stored may be none, or fill a Variable
 * or Comment of kind bin to its 16th byte: it comes out byte for byte, a key that holds just that
 * finds it, it survives a change of another field, and may be given back, since a value that is
 * byte for byte what the record to be changed has already stays as it is, whatever it is.
 *
 * An absent field is not the same as an empty one. In a record to be stored an absent field is one
 * that stays as it is, or that a new record has not; an empty Comment, Aliases or field of a global
 * record is taken away. In a key an absent field may be anything; an empty one matches a record
 * without it.
 *
 * Keys. Any fields of the kind; those are the ones that must be equal, byte for byte, numbers by
 * their value. A key of kind global holds Type. Keys of nothing but Variable and Value (bin, var),
 * of Name, Port and Protocol (services), or of fields of a type other than a number that is 0
 * (global) are compared where the records lie, and in an update a whole identity is found by an
 * index. Comment, Aliases, CheckSum and fields of a newer version, of which a key says which ones a
 * record has and not what is in them, take a reading of each record before them.
 *
 * Text registries. Comment lines, blank lines and lines that cannot be understood are no records:
 * a scan passes over them and every change leaves them as they are. The Comment is the text behind
 * the line's "#", without the blank that follows it. A services line whose port and protocol are
 * not understood is a record with what could be read, Port "0" where that is no number; it may be
 * deleted, and changed to an understood Port and Protocol where its Aliases are given, too, since
 * what stands behind those is not understood either. Protocol is tcp, udp, ddp or divert.
 *
 * Codes. Every function that returns an unsigned returns 0 for success, or a code of which
 * zorreg_code_name, zorreg_code_meaning and zorreg_cause say more. Any function below may return
 *   OSS_RC_NULL_ARGUMENT   an argument is null
 *   OSS_RC_NO_MEMORY       (or GENREG_RC_BUFFER_ALLOC) there is not enough memory
 * any that takes a record or key
 *   GENREG_RC_UNKNOWN_FIELD a field that the kind does not have; the cause names those that it has
 *   GENREG_RC_FIELD_MISSING a field is not there that is needed
 *   GENREG_RC_BAD_VALUE     a value that its field cannot hold: too long, no number, no UTF-8, or a
 *                           text that a line would not give back as it is; the cause has both
 * any that changes something, and zorreg_begin,
 *   GENREG_RC_OTHER_KIND    the file is clearly no registry of this kind, which an update would
 *                           damage; the cause says what it looks like. Reads do not ask
 * and any that reads or writes the file what genreg_handle.h lists; a failure changes nothing
 * unless zorreg_committed says so.
 *
 * Options. A kind may be followed by a comma and words, "var,alike,bytes":
 *   big-endian  bin: the length fields have their high byte first
 *   joined      var, services: a line that ends in a backslash goes on in the next one
 *   alike       var, services: lines that are written look like those of the file: blanks around
 *               "=", columns, carriage returns; a line that is changed keeps its look
 *   compact     var: new lines are NAME=VALUE
 *   bytes       values need not be UTF-8
 *   get-in-scan zorreg_get may be called while a scan is open
 *
 * Threads. A zorreg and a zorreg_record are used by one thread at a time, on one side of a fork;
 * different ones by different threads. Two zorregs, in one process or several, take turns.
 *
 * Nothing here throws, and no memory or stream is to be freed or closed by anything but the
 * functions below. */
#ifndef ZORREG_H
#define ZORREG_H

#include <stddef.h>
#include <stdint.h>

#include "genreg_export.h"

/* The codes that a program decides on; genreg_codes.h has the rest, which C++ takes from there. */
#ifdef __cplusplus
#include "genreg_codes.h"
extern "C" {
#else
#define OSS_RC_NULL_ARGUMENT 0x9000000Cu     /* a required pointer argument is null */
#define OSS_RC_NO_MEMORY 0x9000000Du         /* memory cannot be allocated */
#define GENREG_RC_LOCK_FAILED 0x900001BCu    /* the update lock cannot be taken */
#define GENREG_RC_END 0x900001BEu            /* zorreg_next: no further record */
#define GENREG_RC_BUSY 0x900001C4u           /* another writer held the lock for too long */
#define GENREG_RC_READ_FAILED 0x900001CDu    /* a read error, or damage */
#define GENREG_RC_BUFFER_ALLOC 0x900001E7u   /* memory cannot be allocated */
#define GENREG_RC_DUPLICATE 0x900001F1u      /* the record is there already */
#define GENREG_RC_NO_ARGUMENT 0x900001F3u    /* an empty path */
#define GENREG_RC_PATH_TOO_LONG 0x900001F4u  /* a path of more than 253 bytes */
#define GENREG_RC_KEY_EMPTY 0x900001F5u      /* the key holds no field */
#define GENREG_RC_NOT_FOUND 0x900001F6u      /* no record matches the key */
#define GENREG_RC_UNCHANGED 0x900001F7u      /* zorreg_change: it is so already */
#define GENREG_RC_AMBIGUOUS 0x900001F8u      /* more than one record matches the key */
#define GENREG_RC_UNPACK_FAILED 0x90000254u  /* a global record is malformed, or of a new type */
#define GENREG_RC_NO_SCAN 0x9000025Au        /* no scan is open */
#define GENREG_RC_SCAN_OPEN 0x9000025Bu      /* not while a scan is open */
#define GENREG_RC_UPDATE_OPEN 0x900003E0u    /* zorreg_begin: an update is open */
#define GENREG_RC_NO_UPDATE 0x900003E1u      /* no update is open */
#define GENREG_RC_UPDATE_IN_SCAN 0x900003E2u /* zorreg_begin: a scan is open */
#define GENREG_RC_UNKNOWN_KIND 0x900003E8u   /* zorreg_open: no such kind */
#define GENREG_RC_UNKNOWN_FIELD 0x900003E9u  /* the kind has no field of that name */
#define GENREG_RC_FIELD_MISSING 0x900003EAu  /* a field is missing that is needed here */
#define GENREG_RC_BAD_VALUE 0x900003EBu      /* a value does not fit its field */
#define GENREG_RC_OTHER_KIND 0x900003ECu     /* the file is a registry of another kind */
#define GENREG_RC_PATH_ENCODING 0x900003EDu  /* Windows: a path that is no UTF-8 */
#define GENREG_RC_NO_FILE 0x90000513u        /* the registry file does not exist */
#endif

typedef struct zorreg zorreg;               /* one registry */
typedef struct zorreg_record zorreg_record; /* named fields with values */
typedef struct zorreg_list zorreg_list;     /* copies of the product, or instances */

/* --- registries --- */

/* Makes a handle of the registry file at `path` (copied; UTF-8 on Windows, elsewhere the system's
 * bytes; at most 253 of them) as one of `kind`: "bin", "var", "services" or "global", and
 * options. Nothing is opened or made yet; the file need not exist. A null path: the global
 * registry's own, which the environment variable ZOR_GLOBAL_REG_PATHNAME names, else "global.reg";
 * for the other kinds it is OSS_RC_NULL_ARGUMENT. One registry has one spelling: use the same path
 * everywhere. *registry is the handle, which zorreg_close ends, or null after a failure, of which
 * zorreg_cause(NULL) has the cause: OSS_RC_NULL_ARGUMENT; GENREG_RC_UNKNOWN_KIND;
 * GENREG_RC_NO_ARGUMENT (an empty path, an empty variable included); GENREG_RC_PATH_TOO_LONG (on
 * Windows of the path as the services spell it, in UTF-8 with a byte more at each run of letters
 * that are not ASCII, or shorter); GENREG_RC_PATH_ENCODING (on Windows: it is no UTF-8);
 * GENREG_RC_BASE_NAME; GENREG_RC_DIRECTORY_NAME. */
GENREG_API unsigned zorreg_open(const char* kind, const char* path, zorreg** registry);

/* Ends the handle, its scan, and its update, which is abandoned. Null is fine. */
GENREG_API void zorreg_close(zorreg* registry);

/* --- records --- */

/* A record without fields, which zorreg_record_free frees; null when there is no memory. */
GENREG_API zorreg_record* zorreg_record_new(void);

/* Null is fine. */
GENREG_API void zorreg_record_free(zorreg_record* record);

/* Gives the field a value; both are copied. A null value makes it absent, also when it was. The
 * kinds are not asked here: a field that the kind lacks, or a value that does not fit, is refused
 * where the record is used. GENREG_RC_UNKNOWN_FIELD for an empty name. */
GENREG_API unsigned zorreg_record_set(zorreg_record* record, const char* field, const char* value);

/* The value of a field, null when it is absent or an argument is null. It belongs to the record and
 * stays until the record is changed, filled or freed. */
GENREG_API const char* zorreg_record_get(const zorreg_record* record, const char* field);

/* The name of the field at `index`, from 0, null behind the last; as long as zorreg_record_get's.
 * A record that was read has its fields in the order above. */
GENREG_API const char* zorreg_record_field(const zorreg_record* record, size_t index);

/* --- operations; GENREG_RC_SCAN_OPEN while a scan is open --- */

/* Stores the fields of the first record that matches the key in `found`, in place of what it held;
 * `key` may be `found`. GENREG_RC_KEY_EMPTY; GENREG_RC_NOT_FOUND; GENREG_RC_NO_FILE. After a
 * failure `found` is as it was. */
GENREG_API unsigned zorreg_get(zorreg* registry, const zorreg_record* key, zorreg_record* found);

/* Adds a record behind the others; the registry file and its directory are made when missing.
 * Kinds bin, var and services need every field but Comment and Aliases, global Type and one more.
 * GENREG_RC_DUPLICATE when services or global hold a record of that identity; bin and var may hold
 * several, and only zorreg_set sees to it that there is one. */
GENREG_API unsigned zorreg_add(zorreg* registry, const zorreg_record* record);

/* Gives what matches the key the fields of `record`; fields that it lacks stay. Of bin and var
 * every record that matches is changed; of services and global more than one is
 * GENREG_RC_AMBIGUOUS, unless one of them has just the identity that the key holds. No other writer
 * comes between the reading and the change. GENREG_RC_KEY_EMPTY; GENREG_RC_NOT_FOUND;
 * GENREG_RC_NO_FILE; GENREG_RC_UNCHANGED when all is so already; GENREG_RC_DUPLICATE when the new
 * identity is that of another record of services or global. */
GENREG_API unsigned zorreg_change(zorreg* registry, const zorreg_record* key,
                                  const zorreg_record* record);

/* Makes it so: gives the record of that identity (of bin and var, each of them) the fields of
 * `record`, those that it lacks stay; or adds it when there is none, as zorreg_add does, in one
 * step that no other writer comes between. 0 also when all is so already; nothing is written then.
 * GENREG_RC_FIELD_MISSING when `record` lacks a part of the identity (of kind global: all fields).
 */
GENREG_API unsigned zorreg_set(zorreg* registry, const zorreg_record* record);

/* Deletes what matches the key, as zorreg_change would change it. GENREG_RC_KEY_EMPTY;
 * GENREG_RC_NOT_FOUND; GENREG_RC_NO_FILE; GENREG_RC_AMBIGUOUS. */
GENREG_API unsigned zorreg_delete(zorreg* registry, const zorreg_record* key);

/* --- a scan of all records --- */

/* Begins a scan; an open one begins anew. What is committed later is not in it. GENREG_RC_NO_FILE.
 */
GENREG_API unsigned zorreg_scan(zorreg* registry);

/* Stores the next record's fields in `found`, in place of what it held. GENREG_RC_END behind the
 * last one, as often as it is asked; GENREG_RC_NO_SCAN; GENREG_RC_READ_FAILED. After a failure
 * `found` is as it was, and the scan stays open. */
GENREG_API unsigned zorreg_next(zorreg* registry, zorreg_record* found);

/* Ends the scan; 0 also when none is open. */
GENREG_API unsigned zorreg_scan_end(zorreg* registry);

/* --- many changes, one commit --- */

/* Takes the update lock and keeps it. Until zorreg_commit or zorreg_abandon the operations of this
 * handle work on the pending content, which nobody else sees; one that fails leaves it as it was.
 * GENREG_RC_UPDATE_OPEN; GENREG_RC_UPDATE_IN_SCAN; GENREG_RC_BUSY; GENREG_RC_LOCK_FAILED. */
GENREG_API unsigned zorreg_begin(zorreg* registry);

/* Commits everything since zorreg_begin, or nothing, and ends the update either way. Nothing is
 * written when nothing changed. GENREG_RC_NO_UPDATE. */
GENREG_API unsigned zorreg_commit(zorreg* registry);

/* Ends the update; the registry is as it was. GENREG_RC_NO_UPDATE. */
GENREG_API unsigned zorreg_abandon(zorreg* registry);

/* --- how it waits, and how it went --- */

/* How long an operation waits for another writer, in milliseconds; 0, as made: without end. Past
 * that it is GENREG_RC_BUSY. Null is fine. */
GENREG_API void zorreg_set_lock_timeout(zorreg* registry, uint64_t milliseconds);

/* Whether the content is kept in memory between reads (1; 0, as made): the answers are the same,
 * many reads of a file that nobody changes are faster. Of kind global nothing is kept. Null is
 * fine. */
GENREG_API void zorreg_set_cached_reads(zorreg* registry, int on);

/* 1 when the last add, change, set, delete or commit has been committed, whatever it returned: when
 * only something behind the commit failed, the code alone does not say. Else 0, also for null, for
 * an operation within an update, and when nothing had to be written. */
GENREG_API int zorreg_committed(const zorreg* registry);

/* Why the last operation on this handle failed, in words and with the file's or field's name; empty
 * when it did not. Stays until the handle's next operation. Of null, why this thread's last
 * zorreg_open, zorreg_copies or zorreg_instances failed, empty when it did not; stays until its
 * next one. */
GENREG_API const char* zorreg_cause(const zorreg* registry);

/* The path as it was given to zorreg_open, or the global registry's own; empty for null. Stays as
 * long as the handle. */
GENREG_API const char* zorreg_path(const zorreg* registry);

/* --- what is installed on the machine --- */

/* Begins the list of the installed copies of the product, or of the instances of kind "ZOR" or
 * "ZEM", which may be none. *list is ended by zorreg_list_close; null after a failure. Codes as
 * ossOpenServiceList and ossOpenInstanceList of ossinstall.h. */
GENREG_API unsigned zorreg_copies(zorreg_list** list);
GENREG_API unsigned zorreg_instances(const char* kind, zorreg_list** list);

/* Stores the next entry in `found`, in place of what it held: of a copy the fields
 *   service version versionCode level copyName installPath
 * of an instance
 *   kind instanceName version versionCode copyName installPath instancePath flags hostName
 * version is "9.1.0.0", versionCode the same as "0x0009000100000000"; flags are words with a blank
 * between them of autostart, disabled, remote and cluster; what the machine stores as no UTF-8
 * comes out byte for byte. GENREG_RC_END behind the last one, as often as it is asked. Any other
 * code (GENREG_RC_NEXT_SERVICE, GENREG_RC_NEXT_INSTANCE) is that of an entry that cannot be read;
 * `found` has its copyName, and instanceName, alone then, and the next call goes on. Reading an
 * instance may ask the service control manager or another machine. */
GENREG_API unsigned zorreg_list_next(zorreg_list* list, zorreg_record* found);

/* Null is fine. */
GENREG_API void zorreg_list_close(zorreg_list* list);

/* The name of a code ("GENREG_RC_END") and its meaning, in static memory; never null. */
GENREG_API const char* zorreg_code_name(unsigned code);
GENREG_API const char* zorreg_code_meaning(unsigned code);

#ifdef __cplusplus
}
#endif

#endif
