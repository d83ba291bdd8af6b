/*
Filter: adjust
Description: Brightness, contrast and saturation
Parameter: float brightness; default 0.1; min -1; max 1
Parameter: float contrast; default 1.25; min 0; max 4
Parameter: float saturation; default 1.5; min 0; max 4
*/
void adjust(float brightness, float contrast, float saturation) {
    vec3 color = (gl_FragColor.rgb - 0.5) * contrast + 0.5 + brightness;
    gl_FragColor.rgb = clamp(mix(vec3(kel_luma(color)), color, saturation), 0.0, 1.0);
}
