// The amplitude spectrum of real samples: a Hann window, then a transform of a power of two.

export interface Spectrum {
  frequencies: Float64Array; // Hz
  amplitudes: Float64Array; // of sines, in the unit of the samples
}

// Of the newest power of two of samples; a sine of amplitude 1 whose frequency is that of a bin has 1 there.
export function amplitudeSpectrum(samples: ArrayLike<number>, rate: number): Spectrum {
  const size = 2 ** Math.floor(Math.log2(Math.max(1, samples.length)));
  const skipped = samples.length - size;
  const real = new Float64Array(size);
  const imaginary = new Float64Array(size);
  for (let i = 0; i < size; ++i) {
    const value = samples[skipped + i]!;
    const hann = 0.5 - 0.5 * Math.cos((2 * Math.PI * i) / size);
    real[i] = Number.isFinite(value) ? value * hann : 0;
  }
  transform(real, imaginary);
  const bins = size / 2 + 1;
  const frequencies = new Float64Array(Math.max(1, Math.floor(bins)));
  const amplitudes = new Float64Array(frequencies.length);
  for (let bin = 0; bin < frequencies.length; ++bin) {
    frequencies[bin] = (bin * rate) / size;
    const both = bin === 0 || 2 * bin === size ? 1 : 2;
    amplitudes[bin] = (2 * both * Math.hypot(real[bin]!, imaginary[bin]!)) / size;
  }
  return { frequencies, amplitudes };
}

// In place; the length must be a power of two.
export function transform(real: Float64Array, imaginary: Float64Array): void {
  const size = real.length;
  for (let i = 1, j = 0; i < size; ++i) {
    let bit = size >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) {
      [real[i], real[j]] = [real[j]!, real[i]!];
      [imaginary[i], imaginary[j]] = [imaginary[j]!, imaginary[i]!];
    }
  }
  for (let length = 2; length <= size; length *= 2) {
    const half = length / 2;
    for (let k = 0; k < half; ++k) {
      const angle = (-2 * Math.PI * k) / length;
      const cosine = Math.cos(angle);
      const sine = Math.sin(angle);
      for (let i = k; i < size; i += length) {
        const j = i + half;
        const x = real[j]! * cosine - imaginary[j]! * sine;
        const y = real[j]! * sine + imaginary[j]! * cosine;
        real[j] = real[i]! - x;
        imaginary[j] = imaginary[i]! - y;
        real[i] = real[i]! + x;
        imaginary[i] = imaginary[i]! + y;
      }
    }
  }
}
