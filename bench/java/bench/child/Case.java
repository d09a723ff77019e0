package bench.child;

import java.util.function.IntConsumer;

/**
 * One thing to be timed.
 *
 * @param open whether a request is open on the thread meanwhile
 * @param loop does it as often as told
 */
record Case(String name, boolean open, IntConsumer loop) {
}
