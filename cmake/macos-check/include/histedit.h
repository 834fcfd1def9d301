// The parts of libedit (editline(3)) that the command line uses, declared for the cross-build.
#pragma once

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct editline EditLine;
typedef struct history History;
typedef struct {
  int num;
  const char* str;
} HistEvent;
typedef struct lineinfo {
  const char* buffer;
  const char* cursor;
  const char* lastchar;
} LineInfo;

#define CC_REFRESH 4
#define CC_ERROR 6
#define CC_REDISPLAY 8
#define EL_PROMPT 0
#define EL_EDITOR 2
#define EL_SIGNAL 3
#define EL_BIND 4
#define EL_ADDFN 9
#define EL_HIST 10
#define EL_CLIENTDATA 14
#define H_SETSIZE 1
#define H_ENTER 10
#define H_SETUNIQUE 20

EditLine* el_init(const char*, FILE*, FILE*, FILE*);
void el_end(EditLine*);
const char* el_gets(EditLine*, int*);
const LineInfo* el_line(EditLine*);
int el_insertstr(EditLine*, const char*);
int el_set(EditLine*, int, ...);
int el_get(EditLine*, int, ...);
History* history_init(void);
void history_end(History*);
int history(History*, HistEvent*, int, ...);

#ifdef __cplusplus
}
#endif
