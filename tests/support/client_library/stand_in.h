#pragma once

/* The script and the findings of a stand-in client library. A test opens the same shared object as the code under test
   and reaches the one object `stand_in` in it. Plain C: the libraries are built as C. */

#include <stddef.h>

/* The answer to one statement. A statement without an answer succeeds, unless the script says otherwise, has no result
   set and changes 7 rows. */
struct stand_in_answer {
  const char* statement;
  unsigned error; /* 0: it succeeds */
  const char* text;
  unsigned fields;
  unsigned rows;
  const char* const* cells; /* rows times fields; a null pointer is SQL NULL */
  const unsigned long* lengths;
  unsigned lost_before_row; /* counted from 1: reading it fails with 2013; 0: none */
  unsigned row_error;       /* what that reading fails with instead, the connection staying */
  int cannot_store;         /* the rows are there, but the library cannot hold them */
  int uses;                 /* after so many uses the next answer to the statement counts; 0: no end */
};

struct stand_in {
  /* Told by the test. */
  int no_init;
  int refused_option; /* mysql_options fails for this one */
  unsigned connect_error;
  unsigned select_error;
  const char* refused_db; /* the only one that select_error is for; null: every one */
  unsigned unknown_error; /* of a statement without an answer */
  const char* cipher;     /* null: plain text */
  const char* server_info;
  unsigned lost_at;    /* the connection goes with this call, counted from 1 over statements, pings and selections */
  unsigned lost_error; /* what that call then fails with */
  struct stand_in_answer* answers;
  size_t answer_count;

  /* Found out. */
  unsigned inits, closes, stores, frees;
  unsigned attached, ended;  /* threads */
  unsigned too_early;        /* threads that were attached before any mysql_init had set the library up */
  unsigned unattached;       /* calls from threads that had not been attached */
  unsigned concurrent_inits; /* mysql_init while another thread was in it */
  unsigned requests;         /* statements, pings and selections */
  size_t used;
  char calls[8192]; /* one line each, in order */
};

#ifndef __cplusplus
extern struct stand_in stand_in;
#endif
