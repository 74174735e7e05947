/* What the scheduler needs besides the device: a queue of received bytes and a checksum. */
#ifndef UTIL_H
#define UTIL_H

#include <stdint.h>

#define RING_SIZE 32u /* bytes; a power of two */

/* Bytes on their way from the receive interrupt (which puts) to the main loop (which gets). */
struct ring {
    volatile uint8_t head; /* bytes put so far, modulo 256 */
    volatile uint8_t tail; /* bytes got so far, modulo 256 */
    uint8_t data[RING_SIZE];
};

/* Stores a byte. 0 when the ring is full; the byte is then lost. */
int ring_put(struct ring *ring, uint8_t byte);

/* Takes the oldest byte. 0 when there is none. */
int ring_get(struct ring *ring, uint8_t *byte);

/* Bytes waiting. */
uint8_t ring_used(const struct ring *ring);

/* CRC-8 (polynomial x^8 + x^2 + x + 1, start value 0) over `length` bytes. */
uint8_t crc8(const uint8_t *bytes, uint8_t length);

#endif
