// Allocation and thread creation go through these pointers so that tests can make any single
// one of them fail. They default to malloc, free and pthread_create.
#ifndef VANTOR_PLATFORM_HOOKS_H
#define VANTOR_PLATFORM_HOOKS_H

#include <pthread.h>
#include <stddef.h>

extern void* (*vtr_alloc_hook)(size_t size);
extern void (*vtr_free_hook)(void* block);
extern int (*vtr_thread_create_hook)(pthread_t* tid, const pthread_attr_t* attr,
                                     void* (*start)(void*), void* arg);

#endif  // VANTOR_PLATFORM_HOOKS_H
