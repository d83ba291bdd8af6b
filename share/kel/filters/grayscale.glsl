/*
Filter: grayscale
Description: Removes the color
Parameter: float amount; default 1; min 0; max 1
*/
void grayscale(float amount) {
    gl_FragColor.rgb = mix(gl_FragColor.rgb, vec3(kel_luma(gl_FragColor.rgb)), amount);
}
