/*
 * Sends a file to a pad, for example an image in the pad's own format, over all of its interfaces at once.
 * Usage: upload FILE [PAD], pads being numbered from 1.
 */
#include "print_failure.h"

#include <stdlib.h>
#include <string.h>

static const unsigned int ALL_INTERFACES = ~0U;

/*
 * The file as the library takes it: pieces of piece_size bytes, of which the first is the report id, 0. The last piece
 * is filled up with zeros. NULL where there is no memory or nothing to send; the caller frees it.
 */
static unsigned char* read_pieces(FILE* file, unsigned int piece_size, unsigned int* length) {
    unsigned char* pieces = NULL;

    for (*length = 0;; *length += piece_size) {
        unsigned char* larger = realloc(pieces, (size_t)*length + piece_size);

        if (larger == NULL) {
            free(pieces);
            return NULL;
        }
        pieces = larger;
        memset(pieces + *length, 0, piece_size);
        if (fread(pieces + *length + 1, 1, piece_size - 1, file) == 0) {
            break;
        }
    }
    if (*length == 0) {
        free(pieces);
        return NULL;
    }
    return pieces;
}

static int send_file(FILE* file, unsigned int pad) {
    unsigned int piece_size = 0, length = 0, sent = 0;
    int failed = GetFeatureReportSize(pad, 0, &piece_size);

    if (failed != 0) {
        print_failure(failed);
        return EXIT_FAILURE;
    }
    unsigned char* pieces = read_pieces(file, piece_size, &length);
    if (pieces == NULL) {
        fputs("nothing to send\n", stderr);
        return EXIT_FAILURE;
    }
    failed = WriteFileBuffer(pad, ALL_INTERFACES, pieces, length, &sent);
    free(pieces);
    if (failed != 0) {
        print_failure(failed);
        return EXIT_FAILURE;
    }
    printf("sent %u of %u bytes\n", sent, length);
    return sent == length ? EXIT_SUCCESS : EXIT_FAILURE;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s FILE [PAD]\n", argv[0]);
        return EXIT_FAILURE;
    }
    FILE* file = fopen(argv[1], "rb");
    if (file == NULL) {
        perror(argv[1]);
        return EXIT_FAILURE;
    }
    Initialize();
    const int status = send_file(file, argc > 2 ? (unsigned int)strtoul(argv[2], NULL, 10) : 1);
    Deinitialize();
    fclose(file);
    return status;
}
