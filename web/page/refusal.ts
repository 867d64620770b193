/** What a file or the machine cannot do, as a sentence for the user. */
export class Refusal extends Error {}
export class NoMemory extends Refusal {}
