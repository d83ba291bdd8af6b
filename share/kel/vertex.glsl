/* Covers the target with the frame, row 0 at the top: draw the corners (-1,-1) (1,-1) (-1,1) (1,1) as a strip. */
attribute vec2 kel_corner;
varying vec2 kel_position;
void main(void) {
    kel_position = vec2(0.5 + 0.5 * kel_corner.x, 0.5 - 0.5 * kel_corner.y);
    gl_Position = vec4(kel_corner, 0.0, 1.0);
}
