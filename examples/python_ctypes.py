#!/usr/bin/env python3
"""libkel from Python with ctypes alone: resamples a recording with an audio converter.

usage: python_ctypes.py INPUT.wav OUTPUT.wav [RATE]     (16-bit WAV, mono or stereo)

No C compiler is needed: handles are pointers, records are plain fields. KEL_LIBRARY names the library
when the dynamic loader cannot find it by itself.
"""
import ctypes
import os
import sys
import wave
from ctypes import POINTER, byref, c_int, c_int32, c_uint32, c_void_p

S16LE = 0x80008020


class AudioFormat(ctypes.Structure):
    _fields_ = [("rate", c_int32), ("channels", c_int32), ("type", c_uint32)]


class Conversion(ctypes.Structure):
    _fields_ = [("input", c_void_p), ("input_bytes", c_int32), ("input_limit", c_int32),
                ("output", c_void_p), ("output_bytes", c_int32), ("output_limit", c_int32),
                ("consumed_bytes", c_int32), ("produced_bytes", c_int32),
                ("consumed_frames", c_int32), ("produced_frames", c_int32)]


def load():
    kel = ctypes.CDLL(os.environ.get("KEL_LIBRARY", "libkel.so.1"), use_errno=True)
    kel.kel_create_audio_converter.argtypes = [POINTER(AudioFormat), POINTER(AudioFormat)]
    kel.kel_create_audio_converter.restype = c_void_p
    kel.kel_init_audio_conversion.argtypes = [POINTER(Conversion), c_void_p, c_int32, c_void_p, c_int32]
    kel.kel_init_audio_conversion.restype = c_int
    kel.kel_convert_audio.argtypes = [c_void_p, POINTER(Conversion)]
    kel.kel_convert_audio.restype = c_int
    kel.kel_destroy_audio_converter.argtypes = [POINTER(c_void_p)]
    kel.kel_destroy_audio_converter.restype = c_int
    return kel


def resample(kel, samples, start, target):
    """Converts samples (bytes) from format `start` to format `target`, block by block."""
    converter = c_void_p(kel.kel_create_audio_converter(byref(start), byref(target)))
    if not converter:
        raise OSError(ctypes.get_errno(), f"no conversion from {start.rate} to {target.rate} Hz")
    output = ctypes.create_string_buffer(4096)
    source = ctypes.create_string_buffer(samples, len(samples))
    at, result = 0, []
    try:
        while at < len(samples):
            block = Conversion()
            kel.kel_init_audio_conversion(byref(block), ctypes.addressof(source) + at, len(samples) - at,
                                          output, len(output))
            error = kel.kel_convert_audio(converter, byref(block))
            if error:
                raise OSError(error, os.strerror(error))
            if not block.consumed_bytes and not block.produced_bytes:
                break  # less than a frame is left
            at += block.consumed_bytes
            result.append(output.raw[:block.produced_bytes])
    finally:
        kel.kel_destroy_audio_converter(byref(converter))
    return b"".join(result)


def main(arguments):
    if len(arguments) not in (3, 4):
        print(__doc__, file=sys.stderr)
        return 2
    target_rate = int(arguments[3]) if len(arguments) == 4 else 44100
    try:
        with wave.open(arguments[1]) as file:
            if file.getsampwidth() != 2:
                raise wave.Error("not 16-bit")
            start = AudioFormat(file.getframerate(), file.getnchannels(), S16LE)
            samples = file.readframes(file.getnframes())
        target = AudioFormat(target_rate, start.channels, S16LE)
        samples = resample(load(), samples, start, target)
        with wave.open(arguments[2], "wb") as file:
            file.setparams((target.channels, 2, target.rate, 0, "NONE", ""))
            file.writeframes(samples)
    except (OSError, EOFError, wave.Error) as error:
        print(f"{arguments[1]}: {error or 'the file is truncated'}", file=sys.stderr)
        return 1
    print(f"{start.rate} Hz to {target.rate} Hz: {len(samples) // (2 * target.channels)} frames")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
