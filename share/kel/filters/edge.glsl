/*
Filter: edge
Description: Draws the edges, white on black. Reads the original frame: put it first
Parameter: float amount; default 1; min 0; max 1
*/
float edge_luma(float x, float y) {
    return kel_luma(texture2D(kel_frame, kel_at + kel_pixel * vec2(x, y)).rgb);
}
void edge(float amount) {
    float a = edge_luma(-1.0, -1.0);
    float b = edge_luma(0.0, -1.0);
    float c = edge_luma(1.0, -1.0);
    float d = edge_luma(-1.0, 0.0);
    float e = edge_luma(1.0, 0.0);
    float f = edge_luma(-1.0, 1.0);
    float g = edge_luma(0.0, 1.0);
    float h = edge_luma(1.0, 1.0);
    vec2 slope = vec2(c + 2.0 * e + h - a - 2.0 * d - f, f + 2.0 * g + h - a - 2.0 * b - c);
    gl_FragColor.rgb = mix(gl_FragColor.rgb, vec3(min(length(slope), 1.0)), amount);
}
