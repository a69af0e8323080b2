// The frames of the PC's screen: reads their heads, decodes AV1 with WebCodecs, draws them and measures.

const HEAD = 32;
export const AV1 = 1, PICTURE = 2;
const CODEC = "av01.0.12M.08"; // main profile, up to 4096 x 2304, 8 bits
const MEASURED = 120; // frames

export function readFrame(buffer) {
  if (buffer.byteLength < HEAD) throw new Error("a frame without a head");
  const view = new DataView(buffer);
  const microseconds = (at) => Number(view.getBigUint64(at, true));
  return {
    kind: view.getUint8(0), key: (view.getUint8(1) & 1) !== 0, width: view.getUint32(4, true), height: view.getUint32(8, true),
    number: view.getUint32(12, true), asked: microseconds(16), complete: microseconds(24), data: new Uint8Array(buffer, HEAD),
  };
}

export async function canDecode() {
  if (!("VideoDecoder" in window)) return false;
  const { supported } = await VideoDecoder.isConfigSupported({ codec: CODEC });
  return supported === true;
}

// Rates and times of the newest frames that were drawn.
export class Meter {
  constructor() {
    this.reset();
  }

  reset() {
    this.frames = [];
    this.drawn = 0;
  }

  add(frame, now) {
    ++this.drawn;
    this.frames.push({ at: now, bytes: frame.bytes, host: (frame.complete - frame.asked) / 1000, whole: now - frame.asked / 1000 });
    if (this.frames.length > MEASURED) this.frames.shift();
  }

  // Of the last two seconds.
  read(now) {
    const recent = this.frames.filter(({ at }) => now - at < 2000);
    if (!recent.length) return null;
    const median = (values) => values.sort((a, b) => a - b)[Math.floor(values.length / 2)];
    const seconds = Math.max((now - recent[0].at) / 1000, 0.5);
    return {
      rate: recent.length / seconds, bytes: recent.reduce((sum, { bytes }) => sum + bytes, 0) / recent.length,
      host: median(recent.map(({ host }) => host)), whole: median(recent.map(({ whole }) => whole)),
    };
  }
}

export class FramePainter {
  // fail(text) is called when the decoder has given up; it then wants a key frame.
  constructor(canvas, fail) {
    this.canvas = canvas;
    this.fail = fail;
    this.context = canvas.getContext("2d", { alpha: false });
    this.meter = new Meter();
    this.heads = new Map(); // of frames in the decoder, by their timestamps
    this.next = null;
    this.lost = 0;
  }

  take(buffer) {
    const frame = readFrame(buffer);
    frame.bytes = frame.data.byteLength;
    if (frame.kind === PICTURE) {
      if (frame.bytes !== frame.width * frame.height * 4) throw new Error("a picture of another size than its head");
      const pixels = new ImageData(new Uint8ClampedArray(buffer, HEAD), frame.width, frame.height);
      return this.offer({ frame, draw: () => this.context.putImageData(pixels, 0, 0), close() {} });
    }
    return frame.kind === AV1 ? this.decode(frame) : undefined;
  }

  decode(frame) {
    if (!this.decoder || this.decoder.state === "closed") this.begin();
    if (!frame.key && !this.keyed) return;
    this.keyed = true;
    // A decoder takes its timestamps as microseconds; those of two frames differ.
    this.heads.set(frame.asked, frame);
    this.decoder.decode(new EncodedVideoChunk({ type: frame.key ? "key" : "delta", timestamp: frame.asked, data: frame.data }));
  }

  begin() {
    this.keyed = false;
    this.heads.clear();
    this.decoder = new VideoDecoder({
      output: (image) => {
        const frame = this.heads.get(image.timestamp);
        this.heads.delete(image.timestamp);
        if (!frame) return image.close();
        return this.offer({ frame, draw: () => this.context.drawImage(image, 0, 0), close: () => image.close() });
      },
      error: (problem) => {
        this.keyed = false;
        this.fail(problem.message);
      },
    });
    this.decoder.configure({ codec: CODEC, optimizeForLatency: true });
  }

  // Draws the newest picture with the next frame of the browser.
  offer(picture) {
    if (this.next) {
      ++this.lost;
      this.next.close();
    } else {
      requestAnimationFrame(() => this.draw());
    }
    this.next = picture;
  }

  draw() {
    const picture = this.next;
    this.next = null;
    if (!picture) return;
    const { width, height } = picture.frame;
    if (this.canvas.width !== width || this.canvas.height !== height) Object.assign(this.canvas, { width, height });
    picture.draw();
    picture.close();
    this.meter.add(picture.frame, performance.timeOrigin + performance.now());
  }

  // Forgets what it has begun; the last picture stays.
  stop() {
    if (this.decoder && this.decoder.state !== "closed") this.decoder.close();
    this.decoder = null;
    this.next?.close();
    this.next = null;
    this.meter.reset();
  }
}
