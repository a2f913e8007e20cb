/*
 * A program that loads the library, uses it and unloads it again and again, as one with plugins does.
 *
 *     api_reload_test LIBRARY
 *
 * Once the allocator's own stores are filled, neither descriptors nor allocated memory grow.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <malloc.h>
#include <stdio.h>

enum { FIRST = 3, CYCLES = 20 };

static int openDescriptors(void) {
    int count = 0;
    DIR* directory = opendir("/proc/self/fd");
    while (directory != NULL && readdir(directory) != NULL) {
        ++count;
    }
    if (directory != NULL) {
        closedir(directory);
    }
    return count;
}

/* Returns 0 when the library could be loaded, used and unloaded so many times. */
static int cycles(const char* path, int count) {
    for (int i = 0; i < count; ++i) {
        void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        int (*setFile)(char*);
        if (library == NULL) {
            printf("%s\n", dlerror());
            return 1;
        }
        *(void**)&setFile = dlsym(library, "setAPITraceFile");
        if (setFile == NULL || setFile("/dev/null") != 0) {
            printf("no trace file\n");
            return 1;
        }
        if (dlclose(library) != 0) {
            printf("%s\n", dlerror());
            return 1;
        }
    }
    return 0;
}

int main(int argc, char** argv) {
    int descriptors;
    int descriptorsAfter;
    size_t memory;
    size_t memoryAfter;
    if (argc != 2 || cycles(argv[1], FIRST) != 0) {
        return 2;
    }
    descriptors = openDescriptors();
    memory = mallinfo2().uordblks;
    if (cycles(argv[1], CYCLES) != 0) {
        return 2;
    }
    descriptorsAfter = openDescriptors();
    memoryAfter = mallinfo2().uordblks;
    printf("%d cycles: descriptors %d to %d, bytes %zu to %zu\n", CYCLES, descriptors, descriptorsAfter, memory,
           memoryAfter);
    return descriptorsAfter <= descriptors && memoryAfter <= memory ? 0 : 1;
}
