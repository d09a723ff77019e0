package demo.load;

import java.net.http.HttpResponse;
import java.nio.charset.StandardCharsets;
import java.util.zip.CRC32;

/** What the server answered. {@code statements} is 0 where the answer does not tell. */
record Answer(int status, int statements, byte[] body) {
    static Answer of(HttpResponse<byte[]> response) {
        String told = response.headers().firstValue("X-Statements").orElse("");
        return new Answer(response.statusCode(), told.matches("\\d{1,9}") ? Integer.parseInt(told) : 0,
                response.body());
    }

    boolean fits(Call call) {
        return status == call.status() && statements == call.statements()
                && new String(body, StandardCharsets.UTF_8).startsWith(call.start());
    }

    /** Of the request's target, the status and the body: equal for equal answers to equal requests. */
    long checksum(String target) {
        CRC32 crc = new CRC32();
        crc.update((target + "\n" + status + "\n").getBytes(StandardCharsets.UTF_8));
        crc.update(body);
        return crc.getValue();
    }
}
