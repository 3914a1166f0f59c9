/* A client library that tests play. It keeps the script and the findings in `stand_in`. A variant that lacks a function
   is built with -Dmysql_ping=stand_in_lacks, say: the function is then there under another name. The variant with
   -DSTAND_IN_REPLICA has no script: it plays a replica. */

#include "stand_in.h"

#include <pthread.h>
#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { status_columns = 54 }; /* of SHOW SLAVE STATUS */

typedef struct connection {
  unsigned number;
  const char* text;
  int reconnects;
  int is_lost;
  int has_rows; /* on the way: they must be stored before anything else is asked */
  struct stand_in_answer answer;
  char socket[256];
  const char* status[2 * status_columns];
} MYSQL;

typedef struct result {
  MYSQL* connection;
  struct stand_in_answer answer;
  unsigned next;
} MYSQL_RES;

struct stand_in stand_in;

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; /* of stand_in */
static unsigned initialising;
static _Thread_local int is_attached;

static void count(unsigned* counter) {
  __atomic_add_fetch(counter, 1, __ATOMIC_SEQ_CST);
}

static void called(void) {
  if (!is_attached) count(&stand_in.unattached);
}

__attribute__((format(printf, 1, 2))) static void note(const char* format, ...) {
  pthread_mutex_lock(&mutex);
  va_list arguments;
  va_start(arguments, format);
  size_t room = sizeof stand_in.calls - stand_in.used;
  int length = vsnprintf(stand_in.calls + stand_in.used, room, format, arguments);
  if (length > 0) stand_in.used += (size_t)length < room ? (size_t)length : room - 1;
  va_end(arguments);
  pthread_mutex_unlock(&mutex);
}

static const char* told(const char* text) {
  return text == NULL ? "-" : text;
}

static int fail(MYSQL* mysql, unsigned number, const char* text) {
  mysql->number = number;
  mysql->text = text;
  return number != 0;
}

/* What every request to the server begins with; whether it fails because the connection is gone. */
static int is_gone(MYSQL* mysql) {
  called();
  unsigned request = __atomic_add_fetch(&stand_in.requests, 1, __ATOMIC_SEQ_CST);
  if (mysql->has_rows) return fail(mysql, 2014, "rows on the way");
  unsigned error = mysql->is_lost ? 2006 : 0;
  if (request == stand_in.lost_at) {
    mysql->is_lost = 1;
    error = stand_in.lost_error;
  }
  if (error != 0 && mysql->reconnects) {
    note("reconnect\n");
    mysql->is_lost = 0;
    error = 0;
  }
  return fail(mysql, error, "gone");
}

MYSQL* mysql_init(MYSQL* unused) {
  (void)unused;
  if (__atomic_add_fetch(&initialising, 1, __ATOMIC_SEQ_CST) != 1) count(&stand_in.concurrent_inits);
  sched_yield();
  MYSQL* mysql = stand_in.no_init ? NULL : calloc(1, sizeof *mysql);
  if (mysql != NULL) count(&stand_in.inits);
  is_attached = 1; /* real ones attach the calling thread here as well */
  __atomic_sub_fetch(&initialising, 1, __ATOMIC_SEQ_CST);
  return mysql;
}

void mysql_close(MYSQL* mysql) {
  called();
  count(&stand_in.closes);
  free(mysql);
}

const char* mysql_error(MYSQL* mysql) {
  return told(mysql->text);
}
unsigned mysql_errno(MYSQL* mysql) {
  return mysql->number;
}

MYSQL* mysql_real_connect(MYSQL* mysql, const char* host, const char* user, const char* password, const char* db,
                          unsigned port, const char* socket, unsigned long flags) {
  called();
  snprintf(mysql->socket, sizeof mysql->socket, "%s", socket == NULL ? "" : socket);
  note("connect %s %s %s %s %u %s %lu\n", told(host), told(user), told(password), told(db), port, told(socket), flags);
  return fail(mysql, stand_in.connect_error, "refused") ? NULL : mysql;
}

unsigned char mysql_ssl_set(MYSQL* mysql, const char* key, const char* cert, const char* ca, const char* capath,
                            const char* cipher) {
  (void)mysql;
  note("ssl_set %s %s %s %s %s\n", told(key), told(cert), told(ca), told(capath), told(cipher));
  return 0;
}

int mysql_options(MYSQL* mysql, int option, const void* value) {
  if (option == 7) {
    note("option 7 %s\n", (const char*)value);
  } else {
    note("option %d %d\n", option, *(const unsigned char*)value);
  }
  if (option == stand_in.refused_option) return fail(mysql, 2054, "no such option");
  if (option == STAND_IN_RECONNECT) mysql->reconnects = 1;
  return 0;
}

const char* mysql_get_server_info(MYSQL* mysql) {
  (void)mysql;
  return stand_in.server_info;
}

#ifndef STAND_IN_REPLICA
static struct stand_in_answer answer_to(MYSQL* mysql, const char* statement, size_t length) {
  (void)mysql;
  struct stand_in_answer answer = {.error = stand_in.unknown_error, .text = "unknown"};
  pthread_mutex_lock(&mutex);
  for (size_t i = 0; i < stand_in.answer_count; ++i) {
    struct stand_in_answer* known = &stand_in.answers[i];
    if (known->uses < 0 || strlen(known->statement) != length || memcmp(known->statement, statement, length)) continue;
    if (known->uses > 0 && --known->uses == 0) known->uses = -1;
    answer = *known;
    break;
  }
  pthread_mutex_unlock(&mutex);
  return answer;
}
#else
/* The server is a file, the "socket" of a connection, so that sessions of several processes can share it. It holds
   "running" or "stopped", and STOP SLAVE, START SLAVE and SHOW SLAVE STATUS write and read it as a replica's threads
   would be. Words in a file beside it, SOCKET.mode, change what the server does:
     later      it knows none of the statements with SLAVE, as servers of today
     stuck      START has no effect
     refusing   STOP and START fail
     sources    it has a second source, which never runs
   Statements are appended to SOCKET.statements when that file is there. The socket "memory" is no file: the state is
   this library's own, for measurements and full disks. */
static int runs_in_memory = 1;

static int is_in_memory(const MYSQL* mysql) {
  return strcmp(mysql->socket, "memory") == 0;
}

static FILE* open_beside(const MYSQL* mysql, const char* suffix, const char* mode) {
  char path[300];
  snprintf(path, sizeof path, "%s%s", mysql->socket, suffix);
  return *mode == 'a' && access(path, F_OK) != 0 ? NULL : fopen(path, mode);
}

static int says(const MYSQL* mysql, const char* suffix, const char* word) {
  char text[100];
  FILE* file = is_in_memory(mysql) ? NULL : open_beside(mysql, suffix, "re");
  if (file == NULL) return 0;
  text[fread(text, 1, sizeof text - 1, file)] = '\0';
  fclose(file);
  return strstr(text, word) != NULL;
}

static void set_running(const MYSQL* mysql, int running) {
  if (is_in_memory(mysql)) runs_in_memory = running;
  FILE* file = is_in_memory(mysql) ? NULL : open_beside(mysql, "", "we");
  if (file == NULL) return;
  fputs(running ? "running" : "stopped", file);
  fclose(file);
}

static void fill_status(const char** row, int running) {
  static const int numbers[] = {3, 4, 6, 8, 18, 20, 22, 25, 34, 36};
  for (int i = 0; i < status_columns; ++i) row[i] = "";
  for (size_t i = 0; i < sizeof numbers / sizeof *numbers; ++i) row[numbers[i]] = "0";
  row[0] = running ? "Waiting for master to send event" : "";
  row[9] = "mysql-bin.000001";
  row[10] = row[11] = running ? "Yes" : "No";
  row[21] = "774";
  row[26] = "No";
}

static struct stand_in_answer refusal(unsigned error, const char* text) {
  return (struct stand_in_answer){.error = error, .text = text};
}

static struct stand_in_answer answer_to(MYSQL* mysql, const char* statement, size_t length) {
  FILE* statements = is_in_memory(mysql) ? NULL : open_beside(mysql, ".statements", "ae");
  if (statements != NULL) {
    fprintf(statements, "%.*s\n", (int)length, statement);
    fclose(statements);
  }
  const int is_later = strstr(statement, "SLAVE") == NULL;
  if (!is_later && says(mysql, ".mode", "later")) return refusal(1064, "You have an error in your SQL syntax");
  if (strcmp(statement, is_later ? "SHOW REPLICA STATUS" : "SHOW SLAVE STATUS") == 0) {
    fill_status(mysql->status, is_in_memory(mysql) ? runs_in_memory : says(mysql, "", "running"));
    fill_status(mysql->status + status_columns, 0);
    const unsigned sources = says(mysql, ".mode", "sources") ? 2 : 1;
    return (struct stand_in_answer){.fields = status_columns, .rows = sources, .cells = mysql->status};
  }
  if (strcmp(statement, is_later ? "STOP REPLICA" : "STOP SLAVE") == 0) {
    if (says(mysql, ".mode", "refusing")) return refusal(1227, "Access denied; you need privileges for this operation");
    set_running(mysql, 0);
  } else if (strcmp(statement, is_later ? "START REPLICA" : "START SLAVE") == 0) {
    if (says(mysql, ".mode", "refusing")) return refusal(1200, "The server is not configured as replica");
    if (!says(mysql, ".mode", "stuck")) set_running(mysql, 1);
  } else {
    return refusal(1105, "this server knows nothing but replication");
  }
  return (struct stand_in_answer){0};
}
#endif

int mysql_real_query(MYSQL* mysql, const char* statement, unsigned long length) {
  note("query %.*s\n", (int)length, statement);
  if (is_gone(mysql)) return 1;
  mysql->answer = answer_to(mysql, statement, length);
  mysql->has_rows = mysql->answer.error == 0 && mysql->answer.fields != 0;
  return fail(mysql, mysql->answer.error, mysql->answer.text);
}

MYSQL_RES* mysql_store_result(MYSQL* mysql) {
  called();
  mysql->has_rows = 0;
  if (mysql->answer.fields == 0) return NULL;
  if (mysql->answer.cannot_store) {
    fail(mysql, 2008, "out of memory");
    return NULL;
  }
  MYSQL_RES* result = calloc(1, sizeof *result);
  if (result == NULL) abort();
  result->connection = mysql;
  result->answer = mysql->answer;
  count(&stand_in.stores);
  return result;
}

char** mysql_fetch_row(MYSQL_RES* result) {
  called();
  const struct stand_in_answer* answer = &result->answer;
  if (answer->lost_before_row != 0 && result->next + 1 == answer->lost_before_row) {
    result->connection->is_lost = answer->row_error == 0;
    fail(result->connection, answer->row_error == 0 ? 2013 : answer->row_error, "lost while reading");
    return NULL;
  }
  if (result->next == answer->rows) return NULL;
  return (char**)answer->cells + (size_t)answer->fields * result->next++;
}

unsigned mysql_field_count(MYSQL* mysql) {
  return mysql->answer.fields;
}

MYSQL_RES* mysql_list_dbs(MYSQL* mysql, const char* pattern) {
  (void)mysql;
  (void)pattern;
  return NULL;
}

int mysql_select_db(MYSQL* mysql, const char* db) {
  note("select_db %s\n", db);
  if (is_gone(mysql)) return 1;
  const int is_meant = stand_in.refused_db == NULL || strcmp(stand_in.refused_db, db) == 0;
  return is_meant && fail(mysql, stand_in.select_error, "no such database");
}

unsigned mysql_num_fields(MYSQL_RES* result) {
  return result->answer.fields;
}
unsigned long long mysql_num_rows(MYSQL_RES* result) {
  return result->answer.rows;
}

unsigned long long mysql_affected_rows(MYSQL* mysql) {
  (void)mysql;
  return 7;
}

void mysql_free_result(MYSQL_RES* result) {
  called();
  count(&stand_in.frees);
  free(result);
}

int mysql_ping(MYSQL* mysql) {
  note("ping\n");
  return is_gone(mysql);
}

#ifndef STAND_IN_BARE
unsigned long* mysql_fetch_lengths(MYSQL_RES* result) {
  static _Thread_local unsigned long lengths[status_columns];
  const struct stand_in_answer* answer = &result->answer;
  const size_t first = (size_t)answer->fields * (result->next - 1);
  for (unsigned i = 0; i < answer->fields; ++i) {
    const char* cell = answer->cells[first + i];
    lengths[i] = answer->lengths != NULL ? answer->lengths[first + i] : cell == NULL ? 0 : strlen(cell);
  }
  return lengths;
}

const char* mysql_get_ssl_cipher(MYSQL* mysql) {
  (void)mysql;
  return stand_in.cipher;
}

unsigned char mysql_thread_init(void) {
  if (__atomic_load_n(&stand_in.inits, __ATOMIC_SEQ_CST) == 0) count(&stand_in.too_early);
  is_attached = 1;
  count(&stand_in.attached);
  return 0;
}

void mysql_thread_end(void) {
  is_attached = 0;
  count(&stand_in.ended);
}
#endif

#ifdef STAND_IN_VERSION
unsigned long mysql_get_client_version(void) {
  return STAND_IN_VERSION;
}
const char* mysql_get_client_info(void) {
  return STAND_IN_INFO;
}
#endif

#ifdef STAND_IN_CONNECTOR
int mariadb_get_infov(void) {
  return 0;
}
#endif
