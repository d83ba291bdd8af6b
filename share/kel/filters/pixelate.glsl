/*
Filter: pixelate
Description: Large squares. Reads the original frame: put it first
Parameter: float size; default 8; min 1; max 64 // of a square, in pixels
*/
void pixelate(float size) {
    vec2 square = kel_pixel * size;
    kel_at = (floor(kel_at / square) + 0.5) * square;
    gl_FragColor = texture2D(kel_frame, kel_at);
}
