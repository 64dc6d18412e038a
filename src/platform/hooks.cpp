#include "platform/hooks.h"

#include <stdlib.h>

void* (*vtr_alloc_hook)(size_t size) = malloc;
void (*vtr_free_hook)(void* block) = free;
int (*vtr_thread_create_hook)(pthread_t* tid, const pthread_attr_t* attr, void* (*start)(void*),
                              void* arg) = pthread_create;
