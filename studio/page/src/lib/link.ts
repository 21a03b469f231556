import type { Answer } from './protocol';

export interface LinkHandlers {
  onOpen(): void;
  onMessage(message: Record<string, unknown>): void;
  onPicture(bytes: ArrayBuffer): void;
  onState(connected: boolean): void;
}

const LONGEST_PAUSE = 5000;

// The connection to the server, made anew whenever it is lost.
export class Link {
  private socket: WebSocket | null = null;
  private answers = new Map<number, (answer: Answer) => void>();
  private lastId = 0;
  private pause = 250;

  constructor(
    private readonly address: string,
    private readonly handlers: LinkHandlers,
  ) {
    this.open();
  }

  send(message: Record<string, unknown>): void {
    if (this.socket?.readyState === WebSocket.OPEN) this.socket.send(JSON.stringify(message));
  }

  // Resolves with ok false when the connection is lost first.
  ask(message: Record<string, unknown>): Promise<Answer> {
    const id = ++this.lastId;
    return new Promise((resolve) => {
      if (this.socket?.readyState !== WebSocket.OPEN) return resolve({ answer: id, ok: false });
      this.answers.set(id, resolve);
      this.send({ ...message, id });
    });
  }

  private open(): void {
    const socket = new WebSocket(this.address);
    this.socket = socket;
    socket.binaryType = 'arraybuffer';
    socket.onopen = () => {
      this.pause = 250;
      this.handlers.onState(true);
      this.handlers.onOpen();
    };
    socket.onmessage = (event) => this.receive(event.data as string | ArrayBuffer);
    socket.onclose = () => {
      this.handlers.onState(false);
      for (const [id, resolve] of this.answers) resolve({ answer: id, ok: false });
      this.answers.clear();
      setTimeout(() => this.open(), this.pause);
      this.pause = Math.min(this.pause * 2, LONGEST_PAUSE);
    };
  }

  private receive(data: string | ArrayBuffer): void {
    if (typeof data !== 'string') return this.handlers.onPicture(data);
    const message = JSON.parse(data) as Record<string, unknown>;
    if (typeof message.frame === 'number') this.send({ do: 'got', number: message.frame });
    const id = message.answer;
    if (typeof id === 'number') {
      this.answers.get(id)?.(message as unknown as Answer);
      this.answers.delete(id);
      return;
    }
    this.handlers.onMessage(message);
  }
}
