#include "util.h"

uint8_t ring_used(const struct ring *ring)
{
    return (uint8_t)(ring->head - ring->tail);
}

int ring_put(struct ring *ring, uint8_t byte)
{
    if (ring_used(ring) == RING_SIZE)
        return 0;
    ring->data[ring->head & (RING_SIZE - 1u)] = byte;
    ring->head++;
    return 1;
}

int ring_get(struct ring *ring, uint8_t *byte)
{
    if (ring_used(ring) == 0)
        return 0;
    *byte = ring->data[ring->tail & (RING_SIZE - 1u)];
    ring->tail++;
    return 1;
}

uint8_t crc8(const uint8_t *bytes, uint8_t length)
{
    uint8_t crc = 0;
    while (length-- != 0) {
        crc ^= *bytes++;
        for (uint8_t bit = 0; bit < 8; bit++)
            crc = (uint8_t)(crc << 1 ^ (crc & 0x80u ? 0x07u : 0u));
    }
    return crc;
}
