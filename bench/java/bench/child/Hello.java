package bench.child;

/** The smallest program: one line. */
public final class Hello {
    private Hello() {
    }

    public static void main(String[] args) {
        System.out.println("hello");
    }
}
